// Copies of streams and files.
#pragma once

#include <cstdio>

namespace ddal::core {

// Copies until `from` ends. Returns 0 or a negative errno; -EFBIG and -EFAULT stand in for a write and a read that
// failed without an errno.
int ddal_common_copy_stream(FILE *from, FILE *to);

// Copies a file with its owner, group and mode; the copy takes the place of `dst` at once, when it is complete. Test
// the result for non-zero only: it is +1 for a failing change of owner or mode and a positive errno for a failing copy.
int ddal_common_copy_file(const char *src, const char *dst);

// The same where `dst` lies below a user's folder, which the first `trusted` characters of the path name: below it no
// symbolic link is followed, so that the user cannot turn the caller's privilege against another file.
int copy_file_below(const char *src, const char *dst, size_t trusted);

} // namespace ddal::core
