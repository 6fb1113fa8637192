#include <ddal/log.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace {

const char *prefix_of(int priority)
{
    switch (priority) {
    case LOG_ERR: return "[DDAL_ERROR] ";
    case LOG_WARNING: return "[DDAL_WARNING] ";
    case LOG_INFO: return "[DDAL_INFO] ";
    case LOG_DEBUG: return "[DDAL_DEBUG] ";
    default: return "";
    }
}

} // namespace

int __ddal_log(int priority, const char *format, ...)
{
    const int saved_errno = errno;
    va_list arguments;

    flockfile(stderr);
    fputs(prefix_of(priority), stderr);
    errno = saved_errno;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    funlockfile(stderr);

    // vfprintf may have changed errno; "%m" must read the same in both places.
    errno = saved_errno;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);

    errno = saved_errno;
    return 0;
}
