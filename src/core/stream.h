// Transfers on stdio streams that signals cannot cut short.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/types.h>

namespace ddal::core {

// Blocks all signals for the calling thread while it lives. Its end keeps errno.
class SignalHold {
public:
    SignalHold()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &old_);
    }
    SignalHold(const SignalHold &) = delete;
    SignalHold &operator=(const SignalHold &) = delete;
    ~SignalHold()
    {
        const int saved_errno = errno;
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
        errno = saved_errno;
    }

private:
    sigset_t old_;
};

// Works like fread, but continues after a signal: the C library keeps the bytes that it has read.
size_t read_stream(FILE *from, void *buf, size_t len);

// Work like getline, fwrite, fprintf, fflush and fclose, but block signals until the call is over. The C library
// returns a part of an interrupted line as a whole one, and loses the bytes that an interrupted write has left in the
// buffer.
ssize_t read_line(FILE *from, char **line, size_t *capacity);
size_t write_stream(FILE *to, const void *buf, size_t len);
[[gnu::format(printf, 2, 3)]] int print_stream(FILE *to, const char *format, ...);
int flush_stream(FILE *to);
int close_stream(FILE *stream);

// Waits until a write of at most kPipePiece bytes to a pipe, a socket or a terminal cannot block. Signals are handled
// during the wait.
constexpr size_t kPipePiece = 2048; // flushes at most one full 4096-byte buffer: one page of the pipe
void wait_until_writable(FILE *to);

} // namespace ddal::core
