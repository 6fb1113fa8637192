// Copies of streams and files.
#pragma once

#include <cstdio>

// Copies until `from` ends. Returns 0 or a negative errno. Without an errno a failed write returns -EFBIG and a failed
// read -EFAULT.
int ddal_common_copy_stream(FILE *from, FILE *to);

// Copies a file with its owner, group and mode. The complete copy replaces `dst` in one step. Test the result for
// non-zero only: a failed change of owner or mode returns +1, a failed copy a positive errno.
int ddal_common_copy_file(const char *src, const char *dst);

namespace ddal::core {

// Makes the same copy to a `dst` below a user's folder, which the first `trusted` characters of the path name. Follows
// no symbolic link below that folder: the user could otherwise aim the caller's privilege at another file.
int copy_file_below(const char *src, const char *dst, size_t trusted);

} // namespace ddal::core
