// Programs as calls: output captured, input fed, exit status as result.
#include <ddal/common.h>

#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/copy.h"
#include "core/log.h"
#include "core/mutex_lock.h"
#include "core/process.h"
#include "core/sigpipe_guard.h"
#include "core/stream.h"

using namespace ddal::core;

namespace {

constexpr unsigned kAppendNewline = 1U << 0;

// A runner in a log line: its name, the C function that it resembles, and the program.
struct Caller {
    const char *name;
    const char *kind;
    const char *path;
};

void name_program(const char *path, char **argv)
{
    if (argv[0])
        return;
    const char *slash = strrchr(path, '/');
    argv[0] = const_cast<char *>(slash ? slash + 1 : path);
}

int failed(const Caller &caller, int code)
{
    note_program(caller.path, -code);
    return log_error_as(caller.name, code, "%s ('%s') failed: %d\n", caller.kind, caller.path, code);
}

int result_of(const Caller &caller, int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) {
        log_line_as(LOG_WARNING, caller.name, "%s ('%s') interrupted\n", caller.kind, caller.path);
        return -EINTR;
    }
    log_line_as(LOG_WARNING, caller.name, "%s ('%s') unhandled return value: %x\n", caller.kind, caller.path,
                static_cast<unsigned>(status));
    return -EINVAL;
}

// Returns the result of a program that has ended: the failure to run it, or the failure to feed or read it, or its
// exit status.
int outcome(const Caller &caller, int waited, int status, int moved)
{
    if (waited < 0)
        return failed(caller, waited);
    const int result = result_of(caller, status);
    if (result != 0)
        note_program(caller.path, 0);
    return moved != 0 ? moved : result;
}

int finish(const Caller &caller, pid_t pid, FILE *in_stream, FILE *out_stream, int moved)
{
    int status = 0;
    const int waited = ddal_common_spawn_wait(pid, in_stream, out_stream, &status);
    return outcome(caller, waited, status, moved);
}

// Fills buf with a text of at most size - 1 bytes. Returns 0, -EIO or -ENOBUFS.
int capture(FILE *out, char *buf, size_t size, const char *caller)
{
    const size_t got = read_stream(out, buf, size - 1);
    buf[got] = '\0';
    if (got < size - 1) {
        if (feof(out))
            return 0;
        return log_error_as(caller, -EIO, "ferror(out %d)\n", fileno(out));
    }
    char rest[BUFSIZ];
    if (read_stream(out, rest, 1) == 0)
        return 0;
    while (read_stream(out, rest, sizeof rest) == sizeof rest) {
        // Reads to the end: the program would otherwise block on a full pipe.
    }
    return -ENOBUFS;
}

int feed(FILE *in, unsigned flags, FILE *to_child)
{
    SigpipeGuard guard;
    int result = ddal_common_copy_stream(in, to_child);
    if (result == 0 && (flags & kAppendNewline)) {
        wait_until_writable(to_child);
        errno = 0;
        if (write_stream(to_child, "\n", 1) != 1)
            result = minus_errno();
    }
    if (result == -EPIPE)
        guard.caused();
    return result;
}

// The thread that feeds a program. It is made first and waits for the program: a program that was started before the
// thread failed would act on an empty input.
struct Feeder {
    Feeder(FILE *input, unsigned options) : in(input), flags(options) {}

    FILE *const in;
    const unsigned flags;
    FILE *to_child = nullptr; // stays so where there is no program
    int result = 0;
    Mutex gate; // held by the caller until the program runs
};

void *feed_and_close(void *argument)
{
    Feeder &feeder = *static_cast<Feeder *>(argument);
    static_cast<void>(MutexLock(feeder.gate));
    if (!feeder.to_child)
        return nullptr;

    char buffer[BUFSIZ]; // passwords pass through it, so it must be wiped
    setvbuf(feeder.to_child, buffer, _IOFBF, sizeof buffer);
    feeder.result = feed(feeder.in, feeder.flags, feeder.to_child);

    SigpipeGuard guard;
    errno = 0;
    const bool closed = fclose(feeder.to_child) == 0;
    if (!closed && errno == EPIPE)
        guard.caused();
    if (!closed && feeder.result == 0)
        feeder.result = minus_errno();
    explicit_bzero(buffer, sizeof buffer);
    return nullptr;
}

// The thread blocks all signals: the application's handlers must run in the application's threads.
int start_feeder(pthread_t *thread, Feeder *feeder)
{
    const SignalHold hold;
    return pthread_create(thread, nullptr, feed_and_close, feeder);
}

} // namespace

int _ddal_common_shell_command(const char *path, char **argv)
{
    const Caller caller = {__func__, "system", path};
    int status = 0;
    name_program(path, argv);
    const int run = ddal_common_run(STDOUT_FILENO, STDERR_FILENO, &status, path, argv);
    return outcome(caller, run, status, 0);
}

int _ddal_common_shell_command_read(size_t size, char *buf, const char *path, char **argv)
{
    if (size == 0)
        return _ddal_common_shell_command(path, argv);

    const Caller caller = {__func__, "popen", path};
    pid_t pid = -1;
    FILE *from_child = nullptr;
    name_program(path, argv);
    const int started = ddal_common_spawn(&pid, nullptr, &from_child, STDERR_FILENO, path, argv);
    if (started < 0)
        return failed(caller, started);
    const int captured = capture(from_child, buf, size, __func__);
    return finish(caller, pid, nullptr, from_child, captured);
}

int _ddal_common_shell_command_write_fp(FILE *in, unsigned flags, const char *path, char **argv)
{
    const Caller caller = {__func__, "popen", path};
    pid_t pid = -1;
    FILE *to_child = nullptr;
    name_program(path, argv);
    const int started = ddal_common_spawn(&pid, &to_child, nullptr, STDERR_FILENO, path, argv);
    if (started < 0)
        return failed(caller, started);
    const int fed = feed(in, flags, to_child);
    return finish(caller, pid, to_child, nullptr, fed);
}

int _ddal_common_shell_command_read_write_fp(FILE *in, unsigned flags, FILE *out, const char *path, char **argv)
{
    const Caller caller = {__func__, "popen", path};
    name_program(path, argv);

    // A child may write much before it has read all of its input. One thread for both directions would deadlock with
    // it.
    Feeder feeder(in, flags);
    pthread_t thread;
    pid_t pid = -1;
    FILE *from_child = nullptr;
    int started = 0;
    int thread_error = 0;
    {
        const MutexLock lock(feeder.gate);
        thread_error = start_feeder(&thread, &feeder);
        if (thread_error == 0)
            started = ddal_common_spawn(&pid, &feeder.to_child, &from_child, STDERR_FILENO, path, argv);
    }
    if (thread_error != 0)
        return -thread_error;

    int status = 0;
    const int copied = started < 0 ? 0 : ddal_common_copy_stream(from_child, out);
    const int waited = started < 0 ? 0 : ddal_common_spawn_wait(pid, nullptr, from_child, &status);
    const int join_error = pthread_join(thread, nullptr);
    if (started < 0)
        return failed(caller, started);
    if (join_error != 0)
        return -join_error;
    return outcome(caller, waited, status, feeder.result != 0 ? feeder.result : copied);
}

int ddal_common_read_cmd_output(size_t size, char *buf, const char *cmdline)
{
    char shell[] = "sh";
    char option[] = "-c";
    char *argv[] = {shell, option, const_cast<char *>(cmdline), nullptr};
    return _ddal_common_shell_command_read(size, buf, "/bin/sh", argv);
}
