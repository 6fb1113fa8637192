#include "core/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

size_t ddal_common_strlcpy(char *dst, const char *src, size_t n)
{
    const size_t length = strlen(src);
    if (n == 0)
        return length;
    const size_t copied = std::min(length, n - 1);
    memcpy(dst, src, copied);
    dst[copied] = '\0';
    return length;
}

int ddal_common_scnprintf(char *buf, size_t n, const char *format, ...)
{
    if (n == 0)
        return 0;
    va_list arguments;
    va_start(arguments, format);
    const int formatted = vsnprintf(buf, n, format, arguments);
    va_end(arguments);
    if (formatted < 0) { // an encoding error leaves the buffer unspecified
        buf[0] = '\0';
        return 0;
    }
    return static_cast<int>(std::min(static_cast<size_t>(formatted), n - 1));
}
