// Log-and-return in one line. The macros supply the function name and the source line and keep errno.
#pragma once

#include <cerrno>
#include <cstdio>
#include <syslog.h>

#include <ddal/error.h>
#include <ddal/log.h>

namespace ddal::core {

// False when a pipe or terminal has stayed full for 1 s: its reader has stopped, and a text would wait with it.
bool takes_text(FILE *stream);

// The negative errno of the call that just failed, or the given code where the call left errno at 0.
inline int minus_errno(int when_zero = -EIO)
{
    return errno != 0 ? -errno : when_zero;
}

} // namespace ddal::core

// For a helper that must appear under another function's name or line.
#define log_line_as(priority, function, format, ...)                                                                   \
    static_cast<void>(__ddal_log((priority), "%s:%u- " format, (function),                                             \
                                 static_cast<unsigned>(__LINE__) __VA_OPT__(, ) __VA_ARGS__))

#define log_line(priority, format, ...) log_line_as(priority, __func__, format __VA_OPT__(, ) __VA_ARGS__)

// Logs at error priority; yields `code`.
#define log_error(code, format, ...) (log_line(LOG_ERR, format __VA_OPT__(, ) __VA_ARGS__), (code))

// Logs at error priority; yields -errno.
#define log_errno(format, ...) (log_line(LOG_ERR, format __VA_OPT__(, ) __VA_ARGS__), ddal::core::minus_errno())

// As log_errno, for calls that can fail with errno at 0: yields `when_zero` then.
#define log_errno_or(when_zero, format, ...)                                                                           \
    (log_line(LOG_ERR, format __VA_OPT__(, ) __VA_ARGS__), ddal::core::minus_errno(when_zero))
