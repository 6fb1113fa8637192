// Log-and-return in one line. The macros supply the function name and the source line and keep errno.
#pragma once

#include <cerrno>
#include <cstdio>
#include <syslog.h>

#include <ddal/error.h>
#include <ddal/log.h>

#include "core/last_failure.h"

namespace ddal::core {

// Waits for at most 1 s until a pipe or terminal accepts a text. Returns false after that, because its reader has
// stopped.
bool takes_text(FILE *stream);

// Returns the negative errno of the call that just failed, or `when_zero` if the call left errno at 0.
inline int minus_errno(int when_zero = -EIO)
{
    return errno != 0 ? -errno : when_zero;
}

} // namespace ddal::core

// A helper that must appear under its caller's name passes that name; the line number is the helper's. The macros
// without "_as" log under the name of the function that uses them.
#define log_line_as(priority, caller, format, ...)                                                                     \
    static_cast<void>(__ddal_log((priority), "%s:%u- " format, (caller),                                               \
                                 static_cast<unsigned>(__LINE__) __VA_OPT__(, ) __VA_ARGS__))
#define log_line(priority, format, ...) log_line_as(priority, __func__, format __VA_OPT__(, ) __VA_ARGS__)

// Logs at error priority and yields `code`, which ddal_ext_last_failure remembers.
#define log_error_as(caller, code, format, ...)                                                                        \
    (log_line_as(LOG_ERR, caller, format __VA_OPT__(, ) __VA_ARGS__), ddal::core::noted((caller), (code)))
#define log_error(code, format, ...) log_error_as(__func__, code, format __VA_OPT__(, ) __VA_ARGS__)

// Logs at error priority and yields -errno.
#define log_errno_as(caller, format, ...)                                                                              \
    log_error_as(caller, ddal::core::minus_errno(), format __VA_OPT__(, ) __VA_ARGS__)
#define log_errno(format, ...) log_errno_as(__func__, format __VA_OPT__(, ) __VA_ARGS__)

// Works like log_errno for calls that can fail with errno at 0, and then yields `when_zero`.
#define log_errno_or(when_zero, format, ...)                                                                           \
    log_error(ddal::core::minus_errno(when_zero), format __VA_OPT__(, ) __VA_ARGS__)

// Passes a result code through. Logs at error priority unless it is 0.
#define log_failure_as(caller, result, format, ...)                                                                    \
    __extension__({                                                                                                    \
        const auto log_failure_code = (result);                                                                        \
        if (log_failure_code != 0) {                                                                                   \
            log_line_as(LOG_ERR, caller, format __VA_OPT__(, ) __VA_ARGS__);                                           \
            ddal::core::noted((caller), log_failure_code);                                                             \
        }                                                                                                              \
        log_failure_code;                                                                                              \
    })
#define log_failure(result, format, ...) log_failure_as(__func__, result, format __VA_OPT__(, ) __VA_ARGS__)
