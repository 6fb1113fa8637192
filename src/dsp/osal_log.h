// The adaptation callbacks write to the system log directly, with a separate prefix.
#pragma once

#include <cerrno>
#include <syslog.h>

#define osal_log_as(caller, format, ...)                                                                               \
    syslog(LOG_ERR, "%s():%u " format, (caller), static_cast<unsigned>(__LINE__) __VA_OPT__(, ) __VA_ARGS__)

#define osal_log(format, ...) osal_log_as(__func__, format __VA_OPT__(, ) __VA_ARGS__)
