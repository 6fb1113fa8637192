// Transfers on stdio streams that no signal cuts short.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/types.h>

namespace ddal::core {

// Keeps signals from the calling thread while it lives. errno survives its end.
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

// As fread. Goes on after a signal: the C library keeps what it has read.
size_t read_stream(FILE *from, void *buf, size_t len);

// As getline, fwrite, fprintf, fflush and fclose, but signals wait until the call is over: the C library takes what it
// has of an interrupted line for the whole, and forgets what an interrupted write has left in the buffer.
ssize_t read_line(FILE *from, char **line, size_t *capacity);
size_t write_stream(FILE *to, const void *buf, size_t len);
[[gnu::format(printf, 2, 3)]] int print_stream(FILE *to, const char *format, ...);
int flush_stream(FILE *to);
int close_stream(FILE *stream);

// Waits, open to signals, until a write of at most kPipePiece bytes to a pipe, a socket or a terminal cannot block.
constexpr size_t kPipePiece = 2048; // with a full buffer of 4096 bytes before it, still one page of the pipe
void wait_until_writable(FILE *to);

} // namespace ddal::core
