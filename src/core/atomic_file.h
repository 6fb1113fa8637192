// Replacement of a settings file as a whole, under a lock: readers see the old content or the new, never a mixture.
#pragma once

#include <climits>
#include <cstdio>

#include "core/fresh_name.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

namespace ddal::core {

// A locked file and its replacement, which is dropped with the object unless it was committed.
class AtomicFile {
public:
    // Opens and locks the file. The first letter of the mode (and a "+" after "r") decides:
    //   "r"   read only, shared lock;
    //   "r+"  exclusive lock, the replacement starts as a copy and is written from its start;
    //   "a"   the same, written at its end; a missing file is created empty;
    //   "w"   exclusive lock, the replacement starts empty; a missing file is created empty.
    // The whole mode string opens the replacement's stream, so "w+" is valid. Waits for the lock for at most 20 s.
    // Empty with errno after a failure; EBUSY when another open file keeps the lock for longer.
    AtomicFile(const char *path, const char *mode);
    ~AtomicFile() { drop(); }
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;

    explicit operator bool() const { return static_cast<bool>(reader_); }

    // Returns the stream of the present content.
    FILE *reader() const { return reader_.get(); }
    // Returns the stream of the replacement, or null for a file opened with "r".
    FILE *writer() const { return writer_.get(); }

    // Puts the replacement in place. Drops the lock in every case. Returns 0 or the first negative errno; -EIO when a
    // read or write on one of the streams has failed, because the replacement is then incomplete.
    int commit();

private:
    struct Mode;

    bool open_directory(const char *path);
    bool is_current(int fd, bool *current) const;
    UniqueFd open_locked(const Mode &mode) const;
    bool open_writer(const Mode &mode, const char *mode_text);
    bool open_all(const char *path, const Mode &mode, const char *mode_text);
    int replace();
    void drop();

    UniqueStream reader_; // of the locked target
    UniqueFd directory_;
    UniqueStream writer_; // not open in a read-only file
    FreshName temporary_; // empty until the replacement gets a name
    char base_name_[NAME_MAX + 1] = "";
};

} // namespace ddal::core

// The same as a handle. Closing frees it; the replacement is put in place if `commit` is set.
struct ddal_common_atomic_file;
ddal_common_atomic_file *ddal_common_atomic_open(const char *path, const char *mode);
FILE *ddal_common_atomic_reader(ddal_common_atomic_file *h);
FILE *ddal_common_atomic_writer(ddal_common_atomic_file *h);
int ddal_common_atomic_close(ddal_common_atomic_file *h, int commit);

namespace ddal::core {

// Copies a whole file into an empty one and rewinds both. Returns 0 or a negative errno.
int copy_file_splice(int from, int to);

} // namespace ddal::core
