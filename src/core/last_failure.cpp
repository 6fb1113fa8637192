#include "core/last_failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ddal/diagnosis.h>
#include <unistd.h>
#include <utility>

namespace ddal::core {

namespace {

struct Last {
    ddal_ext_failure failure;
    bool is_reported; // an operation has reported the access
};

constinit thread_local Last last{};

template <size_t N>
void copy_text(char (&to)[N], const char *from)
{
    const size_t length = strnlen(from, N - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

// A signal, or a descriptor that would block, is part of a wait.
bool is_wait(int error)
{
    return error == EINTR || error == EAGAIN;
}

// Begins a new failure. Its path is to be filled.
void begin(int error)
{
    last.failure.code = -error;
    last.failure.error = error;
    last.failure.operation[0] = '\0';
    last.is_reported = false;
}

} // namespace

void note_access(const char *path)
{
    if (is_wait(errno))
        return;
    begin(errno);
    copy_text(last.failure.path, path);
}

void note_access(int fd)
{
    note_access_below(fd, "");
}

void note_access(FILE *stream)
{
    const int saved_errno = errno;
    const int fd = fileno(stream); // negative, with another errno, for a stream in memory
    errno = saved_errno;
    if (fd >= 0)
        note_access(fd);
}

void note_answer(int fd)
{
    const int saved_errno = std::exchange(errno, 0);
    note_access(fd);
    errno = saved_errno;
}

void note_answer(const char *path)
{
    begin(0);
    copy_text(last.failure.path, path);
}

void note_access_below(int directory, const char *path)
{
    if (*path == '/')
        return note_access(path);
    if (is_wait(errno))
        return;
    const int saved_errno = errno;
    begin(errno);
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
    char(&to)[sizeof last.failure.path] = last.failure.path;
    const size_t length = static_cast<size_t>(std::max<ssize_t>(readlink(link, to, sizeof to - 1), 0));
    if (length == 0 || *to != '/') // sockets and pipes have no path
        *to = '\0';
    else
        snprintf(to + length, sizeof to - length, "%s%s", *path ? "/" : "", path);
    errno = saved_errno;
}

void note_program(const char *path, int error)
{
    begin(error);
    copy_text(last.failure.path, path);
}

// Several lines may report one failure, from the inner operation to the outer one: the last one counts. An argument
// that is refused follows no access.
void note_code(const char *caller, int code)
{
    ddal_ext_failure &failure = last.failure;
    if (last.is_reported && code == -EINVAL && failure.code != -EINVAL) {
        failure.error = 0;
        failure.path[0] = '\0';
    }
    failure.code = code;
    copy_text(failure.operation, caller);
    last.is_reported = true;
}

} // namespace ddal::core

int ddal_ext_last_failure(struct ddal_ext_failure *failure)
{
    using ddal::core::last;
    if (failure)
        *failure = last.failure;
    else
        last = {};
    return 0;
}
