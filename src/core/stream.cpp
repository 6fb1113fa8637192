#include "core/stream.h"

#include <cstdarg>
#include <fcntl.h>
#include <poll.h>

namespace ddal::core {

size_t read_stream(FILE *from, void *buf, size_t len)
{
    size_t got = 0;
    for (;;) {
        errno = 0;
        got += fread(static_cast<char *>(buf) + got, 1, len - got, from);
        if (got == len || errno != EINTR)
            return got;
        clearerr(from);
    }
}

ssize_t read_line(FILE *from, char **line, size_t *capacity)
{
    const SignalHold hold;
    return getline(line, capacity, from);
}

size_t write_stream(FILE *to, const void *buf, size_t len)
{
    const SignalHold hold;
    return fwrite(buf, 1, len, to);
}

int print_stream(FILE *to, const char *format, ...)
{
    const SignalHold hold;
    va_list arguments;
    va_start(arguments, format);
    const int printed = vfprintf(to, format, arguments);
    va_end(arguments);
    return printed;
}

int flush_stream(FILE *to)
{
    const SignalHold hold;
    return fflush(to);
}

int close_stream(FILE *stream)
{
    const SignalHold hold;
    return fclose(stream);
}

void wait_until_writable(FILE *to)
{
    const int fd = fileno(to);
    const int flags = fd < 0 ? O_NONBLOCK : fcntl(fd, F_GETFL);
    // A stream without a descriptor never blocks. A bad descriptor fails when the stream is written.
    if (flags & O_NONBLOCK)
        return;
    pollfd writable = {fd, POLLOUT, 0};
    while (poll(&writable, 1, -1) < 0 && errno == EINTR) {
    }
}

} // namespace ddal::core
