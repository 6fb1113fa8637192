// Places for faults in buffered streams, whose calls inside libc cannot be wrapped.
#include "shim.h"

#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdio_ext.h>

namespace vboard::shim {

namespace {

// Bits of FILE::_flags that libc sets at end of file and after an error.
constexpr int kStreamEnd = 0x10;
constexpr int kStreamError = 0x20;

bool watched(FILE *stream)
{
    const Page *p = page();
    return p && p->fault_count.load(std::memory_order_relaxed) != 0 && stream && stream != stdin && stream != stdout &&
           stream != stderr;
}

int descriptor(FILE *stream)
{
    KeepErrno keep;
    return fileno(stream);
}

// Reports whether a signal could arrive now. SIGKILL, SIGSTOP and the two of libc cannot be blocked and do not count.
bool takes_signals()
{
    constexpr uint64_t kHeld = 0x7ffbfeff;
    uint64_t mask = 0;
    syscall(SYS_rt_sigprocmask, SIG_BLOCK, nullptr, &mask, sizeof mask);
    return (mask & kHeld) != kHeld;
}

bool fails(const char *call, FILE *stream, bool interruptible)
{
    Call around(call, descriptor(stream), interruptible && takes_signals());
    if (!around.fails())
        return false;
    stream->_flags |= kStreamError;
    return true;
}

bool read_fails(FILE *stream)
{
    return watched(stream) && fails("getline", stream, true);
}

// As in libc, an interrupted write drops the content of the buffer.
bool write_fails(const char *call, FILE *stream, bool interruptible)
{
    if (!watched(stream) || !fails(call, stream, interruptible))
        return false;
    if (errno == EINTR)
        __fpurge(stream);
    return true;
}

bool write_fails(FILE *stream)
{
    return write_fails("fwrite", stream, true);
}

// A stream with an empty buffer has nothing to write.
bool flush_fails(const char *call, FILE *stream)
{
    return write_fails(call, stream, __fpending(stream) > 0);
}

} // namespace

#define WRAP_FREAD(tag, symbol, parameters, ...)                                                                       \
    WRAP_AS(size_t, tag, symbol, parameters)                                                                           \
    {                                                                                                                  \
        if (watched(stream)) {                                                                                         \
            Call around("fread", descriptor(stream), takes_signals());                                                 \
            if (around.fails()) {                                                                                      \
                stream->_flags |= kStreamError;                                                                        \
                return 0;                                                                                              \
            }                                                                                                          \
            size_t length = size * count;                                                                              \
            if (around.limits(&length)) {                                                                              \
                const size_t n =                                                                                       \
                    length ? NEXT(size_t(void *, size_t, size_t, FILE *), fread)(buffer, 1, 1, stream) : 0;            \
                stream->_flags |= kStreamEnd;                                                                          \
                return n;                                                                                              \
            }                                                                                                          \
        }                                                                                                              \
        return __VA_ARGS__;                                                                                            \
    }
#define PARAMETERS(...) __VA_ARGS__

WRAP_FREAD(fread, "fread", PARAMETERS(void *buffer, size_t size, size_t count, FILE *stream),
           NEXT(size_t(void *, size_t, size_t, FILE *), fread)(buffer, size, count, stream))
WRAP_FREAD(fread_unlocked, "fread_unlocked", PARAMETERS(void *buffer, size_t size, size_t count, FILE *stream),
           NEXT(size_t(void *, size_t, size_t, FILE *), fread_unlocked)(buffer, size, count, stream))
WRAP_FREAD(fread_chk, "__fread_chk", PARAMETERS(void *buffer, size_t, size_t size, size_t count, FILE *stream),
           NEXT(size_t(void *, size_t, size_t, FILE *), fread)(buffer, size, count, stream))

WRAP(size_t, fwrite, const void *buffer, size_t size, size_t count, FILE *stream)
{
    if (write_fails(stream))
        return 0;
    return NEXT(size_t(const void *, size_t, size_t, FILE *), fwrite)(buffer, size, count, stream);
}

#define WRAP_FPRINTF(tag, symbol, ...)                                                                                 \
    WRAP_AS(int, tag, symbol, __VA_ARGS__, const char *format, ...)                                                    \
    {                                                                                                                  \
        if (write_fails(stream))                                                                                       \
            return -1;                                                                                                 \
        va_list arguments;                                                                                             \
        va_start(arguments, format);                                                                                   \
        const int n = NEXT(int(FILE *, const char *, va_list), vfprintf)(stream, format, arguments);                   \
        va_end(arguments);                                                                                             \
        return n;                                                                                                      \
    }
WRAP_FPRINTF(fprintf, "fprintf", FILE *stream)
WRAP_FPRINTF(fprintf_chk, "__fprintf_chk", FILE *stream, int)

// fprintf calls this function when the library's stand-ins or a sanitizer's runtime come first.
#define WRAP_VFPRINTF(tag, symbol, ...)                                                                                \
    WRAP_AS(int, tag, symbol, __VA_ARGS__, const char *format, va_list arguments)                                      \
    {                                                                                                                  \
        if (write_fails(stream))                                                                                       \
            return -1;                                                                                                 \
        return NEXT(int(FILE *, const char *, va_list), vfprintf)(stream, format, arguments);                          \
    }
WRAP_VFPRINTF(vfprintf, "vfprintf", FILE *stream)
WRAP_VFPRINTF(vfprintf_chk, "__vfprintf_chk", FILE *stream, int)

WRAP(int, fputs, const char *text, FILE *stream)
{
    if (write_fails(stream))
        return EOF;
    return NEXT(int(const char *, FILE *), fputs)(text, stream);
}

WRAP(int, fputc, int c, FILE *stream)
{
    if (write_fails(stream))
        return EOF;
    return NEXT(int(int, FILE *), fputc)(c, stream);
}

WRAP(int, putc, int c, FILE *stream)
{
    if (write_fails(stream))
        return EOF;
    return NEXT(int(int, FILE *), putc)(c, stream);
}

WRAP(int, fflush, FILE *stream)
{
    if (stream && flush_fails("fflush", stream))
        return EOF;
    return NEXT(int(FILE *), fflush)(stream);
}

WRAP(int, fclose, FILE *stream)
{
    if (stream && flush_fails("fclose", stream)) {
        KeepErrno keep;
        NEXT(int(FILE *), fclose)(stream);
        return EOF;
    }
    return NEXT(int(FILE *), fclose)(stream);
}

#define WRAP_FSEEK(tag, offset_type)                                                                                   \
    WRAP_AS(int, tag, #tag, FILE *stream, offset_type offset, int whence)                                              \
    {                                                                                                                  \
        if (watched(stream)) {                                                                                         \
            Call around("fseek", descriptor(stream));                                                                  \
            if (around.fails())                                                                                        \
                return -1;                                                                                             \
        }                                                                                                              \
        return NEXT(int(FILE *, offset_type, int), tag)(stream, offset, whence);                                       \
    }
WRAP_FSEEK(fseek, long)
WRAP_FSEEK(fseeko, off_t)
WRAP_FSEEK(fseeko64, int64_t)

#define WRAP_FTELL(tag, offset_type)                                                                                   \
    WRAP_AS(offset_type, tag, #tag, FILE *stream)                                                                      \
    {                                                                                                                  \
        if (watched(stream)) {                                                                                         \
            Call around("ftell", descriptor(stream));                                                                  \
            if (around.fails())                                                                                        \
                return -1;                                                                                             \
        }                                                                                                              \
        return NEXT(offset_type(FILE *), tag)(stream);                                                                 \
    }
WRAP_FTELL(ftell, long)
WRAP_FTELL(ftello, off_t)
WRAP_FTELL(ftello64, int64_t)

WRAP(ssize_t, getline, char **line, size_t *size, FILE *stream)
{
    if (read_fails(stream))
        return -1;
    return NEXT(ssize_t(char **, size_t *, FILE *), getline)(line, size, stream);
}

WRAP(ssize_t, getdelim, char **line, size_t *size, int delimiter, FILE *stream)
{
    if (read_fails(stream))
        return -1;
    return NEXT(ssize_t(char **, size_t *, int, FILE *), getdelim)(line, size, delimiter, stream);
}

// The inline getline of libc's header calls this function in optimised builds.
WRAP(ssize_t, __getdelim, char **line, size_t *size, int delimiter, FILE *stream)
{
    if (read_fails(stream))
        return -1;
    return NEXT(ssize_t(char **, size_t *, int, FILE *), getdelim)(line, size, delimiter, stream);
}

WRAP(char *, fgets, char *buffer, int size, FILE *stream)
{
    if (read_fails(stream))
        return nullptr;
    return NEXT(char *(char *, int, FILE *), fgets)(buffer, size, stream);
}

WRAP(FILE *, fdopen, int fd, const char *mode)
{
    Call around("fdopen", fd);
    if (around.fails())
        return nullptr;
    return stream_on(fd, mode);
}

} // namespace vboard::shim
