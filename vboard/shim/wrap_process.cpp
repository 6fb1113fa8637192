// Starts programs. A program runs only if the board has it, and every program gets the board's environment.
#include "command.h"
#include "shim.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "page/escapes.h"

namespace vboard::shim {

namespace {

bool find_program(const char *path, Path &where)
{
    if (!resolve(AT_FDCWD, path, kFollow | kExec, where))
        return false;
    if (syscall(SYS_faccessat, AT_FDCWD, where.host, X_OK) != 0)
        return false;
    KeepErrno keep;
    const Escape escape = escape_of(where.host, *page());
    if (escape == Escape::kNone)
        return true;
    for (const char *text : {"vboard: not run: ", const_cast<const char *>(where.board), " ", reason(escape), "\n"})
        syscall(SYS_write, 2, text, length_of(text));
    return false;
}

// Writes the argument vector in the form of the trace, separated by blanks.
void arguments_text(char *const *arguments, char *out, size_t size)
{
    out[0] = '\0';
    for (size_t i = 0; arguments && arguments[i]; ++i) {
        if (i)
            append(out, size, " ");
        append(out, size, arguments[i]);
    }
}

int run(const char *path, char *const *arguments, char *const *environment)
{
    Path where;
    char text[1024];
    arguments_text(arguments, text, sizeof text);
    if (!find_program(path, where)) {
        Call around("exec", path);
        around.about(UINT64_MAX, UINT64_MAX, text, length_of(text));
        if (errno == 0)
            errno = EPERM;
        return static_cast<int>(around.done(-1));
    }
    Call around("exec", where.board);
    around.about(UINT64_MAX, UINT64_MAX, text, length_of(text));
    if (around.fails())
        return -1;
    Command command;
    if (!command.make(where.host, arguments, environment))
        return -1;
    around.done(0); // a successful exec does not return
    return static_cast<int>(syscall(SYS_execve, command.program, command.arguments, command.environment));
}

const char *search_path()
{
    for (char **entry = environ; entry && *entry; ++entry)
        if (starts_with(*entry, "PATH="))
            return *entry + 5;
    return "/usr/bin:/bin:/usr/sbin:/sbin";
}

// Finds a program as execvp does. Leaves the path of the last try in `found`.
bool search(const char *name, char *found, size_t size)
{
    for (const char *p = name; *p; ++p)
        if (*p == '/') {
            copy_text(found, size, name);
            return true;
        }
    const char *path = search_path();
    while (*path) {
        size_t n = 0;
        while (path[n] && path[n] != ':' && n + 1 < size) {
            found[n] = path[n];
            ++n;
        }
        found[n] = '\0';
        append(found, size, n ? "/" : "./");
        append(found, size, name);
        Path where;
        KeepErrno keep;
        if (resolve(AT_FDCWD, found, kFollow | kExec, where) && syscall(SYS_faccessat, AT_FDCWD, where.host, X_OK) == 0)
            return true;
        path += n;
        while (*path == ':')
            ++path;
    }
    errno = ENOENT;
    return false;
}

int run_found(const char *name, char *const *arguments, char *const *environment)
{
    char found[PATH_MAX];
    return search(name, found, sizeof found) ? run(found, arguments, environment) : -1;
}

// Collects the arguments of the execl family. Returns the argument after the closing NULL for execle.
bool collect(char **vector, const char *first, va_list arguments)
{
    vector[0] = const_cast<char *>(first);
    for (size_t i = 1; vector[i - 1]; ++i) {
        if (i >= kMaxArguments) {
            errno = E2BIG;
            return false;
        }
        vector[i] = va_arg(arguments, char *);
    }
    return true;
}

} // namespace

void ensure_environment()
{
    Page &p = *page();
    for (uint32_t i = 0; i < p.environment_count; ++i) {
        bool there = false;
        for (char **entry = environ; entry && *entry; ++entry)
            there = there || same(*entry, p.environment[i]);
        if (!there)
            putenv(p.environment[i]);
    }
}

WRAP(int, execve, const char *path, char *const *arguments, char *const *environment)
{
    return run(path, arguments, environment);
}

WRAP(int, execv, const char *path, char *const *arguments)
{
    return run(path, arguments, environ);
}

WRAP(int, execvp, const char *name, char *const *arguments)
{
    return run_found(name, arguments, environ);
}

WRAP(int, execvpe, const char *name, char *const *arguments, char *const *environment)
{
    return run_found(name, arguments, environment);
}

WRAP(int, execl, const char *path, const char *first, ...)
{
    char *vector[kMaxArguments + 1];
    va_list arguments;
    va_start(arguments, first);
    const bool fits = collect(vector, first, arguments);
    va_end(arguments);
    return fits ? run(path, vector, environ) : -1;
}

WRAP(int, execlp, const char *name, const char *first, ...)
{
    char *vector[kMaxArguments + 1];
    va_list arguments;
    va_start(arguments, first);
    const bool fits = collect(vector, first, arguments);
    va_end(arguments);
    return fits ? run_found(name, vector, environ) : -1;
}

WRAP(int, execle, const char *path, const char *first, ...)
{
    char *vector[kMaxArguments + 1];
    va_list arguments;
    va_start(arguments, first);
    const bool fits = collect(vector, first, arguments);
    char *const *environment = va_arg(arguments, char *const *);
    va_end(arguments);
    return fits ? run(path, vector, environment) : -1;
}

// A program that a descriptor names cannot be checked against the board's list.
WRAP(int, fexecve, int fd, char *const *arguments, char *const *environment)
{
    char link[64] = "/proc/self/fd/";
    char digits[24];
    digits[23] = '\0';
    append(link, sizeof link, format_number(static_cast<unsigned>(fd), digits + 23));
    char host[PATH_MAX];
    const long n = syscall(SYS_readlinkat, AT_FDCWD, link, host, sizeof host - 1);
    if (n < 0)
        return -1;
    host[n] = '\0';
    char board[PATH_MAX];
    board_name(host, board, sizeof board);
    return run(board, arguments, environment);
}

WRAP(int, execveat, int directory, const char *path, char *const *arguments, char *const *environment, int flags)
{
    Path where;
    if (flags & AT_EMPTY_PATH) {
        errno = ENOSYS;
        return -1;
    }
    if (!resolve(directory, path, kFollow | kExec, where))
        return -1;
    return run(where.board, arguments, environment);
}

namespace {

using Spawn = int(pid_t *, const char *, const posix_spawn_file_actions_t *, const posix_spawnattr_t *, char *const *,
                  char *const *);

int spawn(Spawn *real, pid_t *pid, const char *path, const posix_spawn_file_actions_t *actions,
          const posix_spawnattr_t *attributes, char *const *arguments, char *const *environment)
{
    KeepErrno keep;
    Path where;
    errno = 0;
    if (!find_program(path, where))
        return errno ? errno : EPERM;
    char text[1024];
    arguments_text(arguments, text, sizeof text);
    Call around("exec", where.board);
    around.about(UINT64_MAX, UINT64_MAX, text, length_of(text));
    if (around.fails())
        return errno;
    Command command;
    if (!command.make(where.host, arguments, environment))
        return errno;
    around.done(0);
    return real(pid, command.program, actions, attributes, command.arguments, command.environment);
}

} // namespace

WRAP(int, posix_spawn, pid_t *pid, const char *path, const posix_spawn_file_actions_t *actions,
     const posix_spawnattr_t *attributes, char *const *arguments, char *const *environment)
{
    return spawn(NEXT(Spawn, posix_spawn), pid, path, actions, attributes, arguments, environment);
}

WRAP(int, posix_spawnp, pid_t *pid, const char *name, const posix_spawn_file_actions_t *actions,
     const posix_spawnattr_t *attributes, char *const *arguments, char *const *environment)
{
    char found[PATH_MAX];
    if (!search(name, found, sizeof found))
        return ENOENT;
    return spawn(NEXT(Spawn, posix_spawn), pid, found, actions, attributes, arguments, environment);
}

WRAP(int, posix_spawn_file_actions_addopen, posix_spawn_file_actions_t *actions, int fd, const char *path, int flags,
     mode_t mode)
{
    KeepErrno keep;
    Path where;
    const bool writes = (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
    if (!resolve(AT_FDCWD, path, kFollow | (writes ? unsigned{kWrite} : 0), where))
        return errno;
    using Real = int(posix_spawn_file_actions_t *, int, const char *, int, mode_t);
    return NEXT(Real, posix_spawn_file_actions_addopen)(actions, fd, where.host, flags, mode);
}

WRAP(int, system, const char *command)
{
    ensure_environment();
    return NEXT(int(const char *), system)(command);
}

WRAP(FILE *, popen, const char *command, const char *mode)
{
    ensure_environment();
    return NEXT(FILE * (const char *, const char *), popen)(command, mode);
}

WRAP(pid_t, fork, void)
{
    Call around("fork", "");
    return around.fails() ? -1 : NEXT(pid_t(void), fork)();
}

namespace {

using Clone = int(int (*)(void *), void *, int, void *, ...);

int real_clone(int (*body)(void *), void *stack, int flags, void *argument, pid_t *parent_id, void *tls,
               pid_t *child_id)
{
    const int result = NEXT(Clone, clone)(body, stack, flags, argument, parent_id, tls, child_id);
#if defined(__arm__)
    // The user-mode emulator cannot make a child with another exit signal. Under it a caller that ignores SIGCHLD, or
    // reaps every child, can lose such a child.
    if (result < 0 && errno == EINVAL && !(flags & CSIGNAL))
        return NEXT(Clone, clone)(body, stack, flags | SIGCHLD, argument, parent_id, tls, child_id);
#endif
    return result;
}

} // namespace

// A start of a process like fork, and fails by the same rule.
WRAP(int, clone, int (*body)(void *), void *stack, int flags, void *argument, ...)
{
    Call around("fork", "");
    if (around.fails())
        return -1;
    va_list more;
    va_start(more, argument);
    auto *parent_id = va_arg(more, pid_t *); // valid only with the flags for them
    void *tls = va_arg(more, void *);
    auto *child_id = va_arg(more, pid_t *);
    va_end(more);
    return real_clone(body, stack, flags, argument, parent_id, tls, child_id);
}

WRAP(pid_t, waitpid, pid_t pid, int *status, int options)
{
    Call around("waitpid", "");
    return around.fails() ? -1 : NEXT(pid_t(pid_t, int *, int), waitpid)(pid, status, options);
}

WRAP(int, pipe, int *ends)
{
    Call around("pipe", "");
    return around.fails() ? -1 : static_cast<int>(syscall(SYS_pipe2, ends, 0));
}

WRAP(int, pipe2, int *ends, int flags)
{
    Call around("pipe", "");
    return around.fails() ? -1 : static_cast<int>(syscall(SYS_pipe2, ends, flags));
}

WRAP(int, pthread_create, pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument)
{
    Call around("pthread_create", "");
    if (around.fails())
        return errno;
    using Real = int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    return NEXT(Real, pthread_create)(thread, attributes, body, argument);
}

} // namespace vboard::shim
