// Copies of streams and files.
#pragma once

#include <cstdio>

namespace ddal::core {

// Copies until `from` ends. Returns 0 or a negative errno; -EFBIG and -EFAULT stand in for a write and a read that
// failed without an errno.
int ddal_common_copy_stream(FILE *from, FILE *to);

// Copies a file with its owner, group and mode. Test the result for non-zero only: it is +1 for a failing chown or
// chmod and a positive errno for a failing copy.
int ddal_common_copy_file(const char *src, const char *dst);

} // namespace ddal::core
