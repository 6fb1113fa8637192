// Bounded texts.
#pragma once

#include <cstddef>

#include <ddal/export.h>

// Copies at most n - 1 characters and a NUL; copies nothing if n is 0. Returns strlen(src), which shows whether the
// text was cut.
size_t ddal_common_strlcpy(char *dst, const char *src, size_t n);

// Works like snprintf, but returns the number of characters stored, without the NUL.
int ddal_common_scnprintf(char *buf, size_t n, const char *format, ...) DDAL_PRINTF(3, 4);
