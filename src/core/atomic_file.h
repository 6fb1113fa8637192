// Replacement of a settings file as a whole, under a lock: readers see the old content or the new, never a mixture.
#pragma once

#include <cstdio>
#include <memory>

struct ddal_common_atomic_file;

// Opens and locks the file. The first letter of the mode (and a "+" after "r") decides:
//   "r"   read only, shared lock;
//   "r+"  exclusive lock, the replacement starts as a copy and is written from its start;
//   "a"   the same, written at its end; a missing file is created empty;
//   "w"   exclusive lock, the replacement starts empty; a missing file is created empty.
// The whole mode string opens the replacement's stream, so "w+" is valid. Waits for the lock for at most 20 s. Returns
// null with errno on failure; EBUSY when another open file keeps the lock for longer.
ddal_common_atomic_file *ddal_common_atomic_open(const char *path, const char *mode);

// Returns the stream of the present content.
FILE *ddal_common_atomic_reader(ddal_common_atomic_file *h);

// Returns the stream of the replacement, or null for a handle opened with "r".
FILE *ddal_common_atomic_writer(ddal_common_atomic_file *h);

// Puts the replacement in place if `commit` is set. Drops the lock and frees the handle in every case. Returns 0 or the
// first negative errno; -EIO when a read or write on one of the streams has failed, because the replacement is then
// incomplete.
int ddal_common_atomic_close(ddal_common_atomic_file *h, int commit);

namespace ddal::core {

// Copies a whole file into an empty one and rewinds both. Returns 0 or a negative errno.
int copy_file_splice(int from, int to);

// Drops the replacement unless it was committed.
struct AtomicFileDiscard {
    void operator()(ddal_common_atomic_file *h) const { ddal_common_atomic_close(h, 0); }
};

// A handle that is discarded at the end of its scope; commit with `ddal_common_atomic_close(file.release(), 1)`.
using AtomicFile = std::unique_ptr<ddal_common_atomic_file, AtomicFileDiscard>;

} // namespace ddal::core
