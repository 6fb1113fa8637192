// Stand-ins for functions of other libraries. The linker directs every call of this library to them ("--wrap"; the
// names are in CMakeLists.txt).
//
// A cancellation does not act inside a stand-in, so it cannot come between acquiring something and giving it to its
// owner. A descriptor that a stand-in opens never has the number of a standard stream: a log line could otherwise be
// written into it.
#include "core/libc_calls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <mntent.h>
#include <poll.h>
#include <pwd.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/foreign_call.h"
#include "core/last_failure.h"

using ddal::core::CancellationHold;
using ddal::core::ForeignCall;
using ddal::core::kStandardStreams;
using ddal::core::note_access;
using ddal::core::note_access_below;
using ddal::core::note_answer;
using ddal::core::StandardNumbers;

namespace {

// Set by the first low number. From then on every stand-in occupies the free numbers before it opens anything, so that
// another thread's log line cannot come between opening and moving.
std::atomic<bool> low_numbers_free{false};

bool is_low(int fd)
{
    if (fd < 0 || fd >= kStandardStreams) [[likely]]
        return false;
    low_numbers_free.store(true, std::memory_order_relaxed);
    return true;
}

int move_up(int fd)
{
    return __real_fcntl64(fd, F_DUPFD_CLOEXEC, kStandardStreams);
}

void close_keeping_errno(int fd)
{
    const int saved_errno = errno;
    __real_close(fd);
    errno = saved_errno;
}

int lifted(int fd)
{
    if (!is_low(fd))
        return fd;
    const int moved = move_up(fd);
    close_keeping_errno(fd);
    return moved;
}

// Lifts a stream or directory. `remake` makes one of a descriptor, `end` ends one.
template <typename Stream, typename Remake, typename End>
Stream *lifted(Stream *stream, int fd, Remake remake, End end)
{
    if (!stream || !is_low(fd))
        return stream;
    const int moved = move_up(fd);
    Stream *const remade = moved >= 0 ? remake(moved) : nullptr;
    const int saved_errno = errno;
    if (moved >= 0 && !remade)
        __real_close(moved);
    end(stream);
    errno = saved_errno;
    return remade;
}

FILE *lifted(FILE *stream, const char *mode)
{
    return lifted(
        stream, stream ? fileno(stream) : -1, [mode](int fd) { return fdopen(fd, mode); }, fclose);
}

bool failed(int fd)
{
    return fd < 0;
}

bool failed(const void *stream)
{
    return !stream;
}

// A signal does not end the wait for a slow device, or for the other end of a FIFO.
template <typename Open>
auto after_signals(Open open)
{
    auto made = open();
    while (failed(made) && errno == EINTR)
        made = open();
    return made;
}

template <typename Open>
auto opened(Open open)
{
    const CancellationHold hold;
    if (low_numbers_free.load(std::memory_order_relaxed)) [[unlikely]] {
        const StandardNumbers occupied;
        return after_signals(open);
    }
    return after_signals(open);
}

template <typename Open>
auto opened(const char *path, Open open, int directory = AT_FDCWD)
{
    const auto made = opened(open);
    if (failed(made)) [[unlikely]]
        directory == AT_FDCWD ? note_access(path) : note_access_below(directory, path);
    return made;
}

// Passes the number of transferred bytes, elements or lines through.
template <typename Count>
Count transferred(FILE *stream, Count count)
{
    if (ferror(stream)) [[unlikely]]
        note_access(stream);
    return count;
}

// Passes the result of an access through.
template <typename Result>
Result accessed(int fd, Result result)
{
    if (result < 0) [[unlikely]]
        note_access(fd);
    return result;
}

// A device that moves nothing has refused. Reading a file from its start to its end goes through read.
ssize_t moved(int fd, ssize_t count)
{
    if (count > 0) [[likely]]
        return count;
    count < 0 ? note_access(fd) : note_answer(fd);
    return count;
}

// Passes the result of connecting through.
int connected(const sockaddr *to, socklen_t size, int result)
{
    if (result >= 0 || errno == EINPROGRESS || to->sa_family != AF_UNIX) [[likely]]
        return result;
    const auto *address = reinterpret_cast<const sockaddr_un *>(to);
    char name[sizeof address->sun_path + 1] = {};
    memcpy(name, address->sun_path, std::min<size_t>(size - offsetof(sockaddr_un, sun_path), sizeof address->sun_path));
    if (name[0] == '\0')
        name[0] = '@'; // an abstract name, as ss writes it
    note_access(name);
    return result;
}

bool takes_mode(int flags)
{
    return flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE;
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C"
{

// Functions that open a descriptor for their caller

int __wrap_open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = takes_mode(flags) ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return opened(path, [=] { return lifted(__real_open64(path, flags, mode)); });
}

int __real_openat64(int directory, const char *path, int flags, ...);
int __wrap_openat64(int directory, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = takes_mode(flags) ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return opened(
        path, [=] { return lifted(__real_openat64(directory, path, flags, mode)); }, directory);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol)
{
    return opened([=] { return lifted(__real_socket(domain, type, protocol)); });
}

int __real_eventfd(unsigned count, int flags);
int __wrap_eventfd(unsigned count, int flags)
{
    return opened([=] { return lifted(__real_eventfd(count, flags)); });
}

int __real_pipe2(int ends[2], int flags);
int __wrap_pipe2(int ends[2], int flags)
{
    return opened([=] {
        if (__real_pipe2(ends, flags) != 0)
            return -1;
        ends[0] = lifted(ends[0]);
        ends[1] = lifted(ends[1]);
        if (ends[0] >= 0 && ends[1] >= 0)
            return 0;
        for (const int end : {ends[0], ends[1]}) {
            if (end >= 0)
                close_keeping_errno(end);
        }
        return -1;
    });
}

FILE *__real_fopen64(const char *path, const char *mode);
FILE *__wrap_fopen64(const char *path, const char *mode)
{
    return opened(path, [=] { return lifted(__real_fopen64(path, mode), mode); });
}

FILE *__real_setmntent(const char *path, const char *mode);
FILE *__wrap_setmntent(const char *path, const char *mode)
{
    return opened(path, [=] { return lifted(__real_setmntent(path, mode), mode); });
}

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path)
{
    return opened(path, [=] {
        DIR *const directory = __real_opendir(path);
        return lifted(directory, directory ? dirfd(directory) : -1, fdopendir, closedir);
    });
}

// Functions that only work, or wait, on what they are given

#define DDAL_ACCESS(result, name, parameters, arguments)                                                               \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters                                                                                    \
    {                                                                                                                  \
        const CancellationHold hold;                                                                                   \
        return accessed(fd, __real_##name arguments);                                                                  \
    }

#define DDAL_MOVED(result, name, parameters, arguments)                                                                \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters                                                                                    \
    {                                                                                                                  \
        const CancellationHold hold;                                                                                   \
        return moved(fd, __real_##name arguments);                                                                     \
    }

#define DDAL_TRANSFER(result, name, parameters, arguments)                                                             \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters                                                                                    \
    {                                                                                                                  \
        const CancellationHold hold;                                                                                   \
        return transferred(stream, __real_##name arguments);                                                           \
    }

#define DDAL_HELD(result, name, parameters, arguments)                                                                 \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters                                                                                    \
    {                                                                                                                  \
        const CancellationHold hold;                                                                                   \
        return __real_##name arguments;                                                                                \
    }

int __wrap_close(int fd)
{
    const CancellationHold hold;
    return __real_close(fd);
}

int __wrap_fcntl64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    // Reads an argument even where the caller has passed none, as the C library does.
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    const CancellationHold hold;
    return __real_fcntl64(fd, command, argument);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *); // the C library reads one as well, given or not
    va_end(arguments);
    return accessed(fd, __real_ioctl(fd, request, argument));
}

int __real_connect(int fd, const sockaddr *to, socklen_t size);
int __wrap_connect(int fd, const sockaddr *to, socklen_t size)
{
    const CancellationHold hold;
    return connected(to, size, __real_connect(fd, to, size));
}

DDAL_HELD(int, eventfd_read, (int fd, eventfd_t *count), (fd, count))
DDAL_HELD(int, eventfd_write, (int fd, eventfd_t count), (fd, count))
DDAL_ACCESS(int, fdatasync, (int fd), (fd))
DDAL_ACCESS(int, fsync, (int fd), (fd))
DDAL_HELD(int, poll, (pollfd * fds, nfds_t count, int limit), (fds, count, limit))
DDAL_MOVED(ssize_t, pread64, (int fd, void *data, size_t size, off64_t at), (fd, data, size, at))
DDAL_MOVED(ssize_t, pwrite64, (int fd, const void *data, size_t size, off64_t at), (fd, data, size, at))
DDAL_ACCESS(ssize_t, read, (int fd, void *data, size_t size), (fd, data, size))
DDAL_HELD(ssize_t, recv, (int fd, void *data, size_t size, int flags), (fd, data, size, flags))
DDAL_HELD(ssize_t, send, (int fd, const void *data, size_t size, int flags), (fd, data, size, flags))
DDAL_HELD(ssize_t, splice, (int from, off64_t *from_at, int to, off64_t *to_at, size_t size, unsigned flags),
          (from, from_at, to, to_at, size, flags))
DDAL_MOVED(ssize_t, write, (int fd, const void *data, size_t size), (fd, data, size))

DDAL_HELD(int, nanosleep, (const timespec *time, timespec *left), (time, left))
DDAL_HELD(int, pthread_cond_timedwait, (pthread_cond_t * condition, pthread_mutex_t *mutex, const timespec *limit),
          (condition, mutex, limit))
DDAL_HELD(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t *mutex), (condition, mutex))
DDAL_HELD(int, pthread_join, (pthread_t thread, void **result), (thread, result))
DDAL_HELD(int, sem_wait, (sem_t * semaphore), (semaphore))
DDAL_HELD(int, sigtimedwait, (const sigset_t *set, siginfo_t *info, const timespec *limit), (set, info, limit))
DDAL_HELD(int, usleep, (useconds_t time), (time))
DDAL_HELD(pid_t, waitpid, (pid_t pid, int *status, int options), (pid, status, options))

DDAL_HELD(int, closedir, (DIR * directory), (directory))
DDAL_HELD(int, endmntent, (FILE * table), (table))
DDAL_HELD(int, fclose, (FILE * stream), (stream))
DDAL_HELD(int, fflush, (FILE * stream), (stream))
DDAL_HELD(int, fgetc, (FILE * stream), (stream))
DDAL_TRANSFER(char *, fgets, (char *text, int size, FILE *stream), (text, size, stream))
DDAL_HELD(int, fputc, (int character, FILE *stream), (character, stream))
DDAL_HELD(int, fputs, (const char *text, FILE *stream), (text, stream))
DDAL_TRANSFER(size_t, fread, (void *data, size_t size, size_t count, FILE *stream), (data, size, count, stream))
DDAL_HELD(int, fseeko64, (FILE * stream, off64_t offset, int whence), (stream, offset, whence))
DDAL_HELD(off64_t, ftello64, (FILE * stream), (stream))
DDAL_TRANSFER(size_t, fwrite, (const void *data, size_t size, size_t count, FILE *stream), (data, size, count, stream))
DDAL_HELD(ssize_t, __getdelim, (char **line, size_t *capacity, int end, FILE *stream), (line, capacity, end, stream))
DDAL_HELD(int, getc, (FILE * stream), (stream))
DDAL_TRANSFER(ssize_t, getline, (char **line, size_t *capacity, FILE *stream), (line, capacity, stream))
DDAL_HELD(mntent *, getmntent_r, (FILE * table, mntent *entry, char *text, int size), (table, entry, text, size))
DDAL_HELD(int, setvbuf, (FILE * stream, char *buffer, int mode, size_t size), (stream, buffer, mode, size))
DDAL_HELD(int, vfprintf, (FILE * stream, const char *format, va_list arguments), (stream, format, arguments))

int __wrap_fprintf(FILE *stream, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int written = __wrap_vfprintf(stream, format, arguments);
    va_end(arguments);
    return written;
}

int __isoc99_vfscanf(FILE *stream, const char *format, va_list arguments);
int __wrap___isoc99_fscanf(FILE *stream, const char *format, ...)
{
    const CancellationHold hold;
    va_list arguments;
    va_start(arguments, format);
    const int converted = __isoc99_vfscanf(stream, format, arguments);
    va_end(arguments);
    return converted;
}

// Functions that open descriptors for themselves

#define DDAL_FOREIGN(result, name, parameters, arguments)                                                              \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters                                                                                    \
    {                                                                                                                  \
        const ForeignCall call;                                                                                        \
        return __real_##name arguments;                                                                                \
    }

DDAL_FOREIGN(void *, dlopen, (const char *name, int mode), (name, mode))
DDAL_FOREIGN(int, getpwnam_r, (const char *name, passwd *entry, char *text, size_t size, passwd **found),
             (name, entry, text, size, found))
DDAL_FOREIGN(unsigned, if_nametoindex, (const char *name), (name))
DDAL_FOREIGN(tm *, localtime_r, (const time_t *time, tm *parts), (time, parts))
DDAL_FOREIGN(void, perror, (const char *text), (text))
DDAL_FOREIGN(sem_t *, sem_open, (const char *name, int flags, mode_t mode, unsigned value), (name, flags, mode, value))
DDAL_FOREIGN(char *, strerror_r, (int error, char *text, size_t size), (error, text, size))
DDAL_FOREIGN(void, vsyslog, (int priority, const char *format, va_list arguments), (priority, format, arguments))

void __wrap_syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    __wrap_vsyslog(priority, format, arguments);
    va_end(arguments);
}

// The checked forms, which an optimised build calls

int __real___open64_2(const char *path, int flags);
int __wrap___open64_2(const char *path, int flags)
{
    return opened(path, [=] { return lifted(__real___open64_2(path, flags)); });
}

DDAL_HELD(int, __vfprintf_chk, (FILE * stream, int checks, const char *format, va_list arguments),
          (stream, checks, format, arguments))

int __wrap___fprintf_chk(FILE *stream, int checks, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int written = __wrap___vfprintf_chk(stream, checks, format, arguments);
    va_end(arguments);
    return written;
}

DDAL_FOREIGN(void, __vsyslog_chk, (int priority, int checks, const char *format, va_list arguments),
             (priority, checks, format, arguments))

void __wrap___syslog_chk(int priority, int checks, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    __wrap___vsyslog_chk(priority, checks, format, arguments);
    va_end(arguments);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
