// Bounded texts.
#pragma once

#include <cstddef>

#include <ddal/export.h>

namespace ddal::core {

// Copies at most n - 1 characters and a NUL (nothing for n 0). Returns strlen(src), so that a cut can be told.
size_t ddal_common_strlcpy(char *dst, const char *src, size_t n);

// snprintf that returns the characters actually stored, without the NUL.
int ddal_common_scnprintf(char *buf, size_t n, const char *format, ...) DDAL_PRINTF(3, 4);

} // namespace ddal::core
