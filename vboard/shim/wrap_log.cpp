// The system log of the board: one line per message in .vboard/syslog, "<pid> <priority> <text>".
#include "shim.h"

#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

namespace vboard::shim {

namespace {

void log_to_board(int priority, const char *format, va_list arguments)
{
    const int saved = errno;
    char line[4096];
    line[0] = '\0';
    char digits[24];
    digits[23] = '\0';
    append(line, sizeof line, format_number(static_cast<unsigned>(process_id()), digits + 23));
    append(line, sizeof line, " ");
    append(line, sizeof line, format_number(static_cast<unsigned>(LOG_PRI(priority)), digits + 23));
    append(line, sizeof line, " ");
    const size_t head = length_of(line);
    errno = saved;
    using Print = int(char *, size_t, const char *, va_list);
    const int n = NEXT(Print, vsnprintf)(line + head, sizeof line - head - 2, format, arguments);
    KeepErrno keep;
    size_t end = n < 0 ? head : length_of(line);
    while (end > head && line[end - 1] == '\n')
        --end;
    // A line break in the text must not end the line.
    for (size_t i = head; i < end; ++i)
        if (line[i] == '\n')
            line[i] = '\r';
    line[end++] = '\n';
    append_to_board("/syslog", line, end, kSyslogLimit, kSyslogEnd);
}

} // namespace

WRAP(void, vsyslog, int priority, const char *format, va_list arguments)
{
    log_to_board(priority, format, arguments);
}

WRAP_AS(void, vsyslog_chk, "__vsyslog_chk", int priority, int, const char *format, va_list arguments)
{
    log_to_board(priority, format, arguments);
}

WRAP(void, syslog, int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_to_board(priority, format, arguments);
    va_end(arguments);
}

WRAP_AS(void, syslog_chk, "__syslog_chk", int priority, int, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_to_board(priority, format, arguments);
    va_end(arguments);
}

} // namespace vboard::shim
