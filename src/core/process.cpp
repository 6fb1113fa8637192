#include "core/process.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/log.h"
#include "core/sigpipe_guard.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

namespace ddal::core {

namespace {

constexpr int kNullDevice = -1;
constexpr int kNotExecuted = 127;
constexpr int kFirstPrivateFd = 3;
constexpr size_t kListingSize = 4096;

struct ChildStreams {
    int in = kNullDevice;
    int out = kNullDevice;
    int err = kNullDevice;
};

struct Pipe {
    UniqueFd read_end;
    UniqueFd write_end;

    bool make()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        read_end.reset(ends[0]);
        write_end.reset(ends[1]);
        return move_up(read_end) && move_up(write_end);
    }

private:
    // Where the caller has closed a standard stream, a pipe must not take its number: the child would inherit it there.
    static bool move_up(UniqueFd &end)
    {
        if (end.get() < kFirstPrivateFd)
            end.reset(fcntl(end.get(), F_DUPFD_CLOEXEC, kFirstPrivateFd));
        return static_cast<bool>(end);
    }
};

// Everything between fork and exec is async-signal-safe: another thread of the parent may have held any lock.

void reset_signals()
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &standard, nullptr); // refused for SIGKILL, SIGSTOP and the C library's own: no matter
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// A copy of `fd` above the standard streams, so that setting one of these up never overwrites another's source. What
// the parent itself has closed becomes the null device.
int lift(int fd, int null_fd)
{
    if (fd == kNullDevice)
        return null_fd;
    const int lifted = fcntl(fd, F_DUPFD_CLOEXEC, kFirstPrivateFd);
    return lifted < 0 && errno == EBADF ? null_fd : lifted;
}

bool connect_stream(int source, int target)
{
    int result = 0;
    do {
        result = dup2(source, target);
    } while (result < 0 && errno == EINTR);
    return result == target;
}

bool connect_streams(const ChildStreams &streams)
{
    const int opened = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (opened < 0)
        return false;
    const int null_fd = lift(opened, opened);
    const int in = lift(streams.in, null_fd);
    const int out = lift(streams.out, null_fd);
    const int err = lift(streams.err, null_fd);
    return null_fd >= 0 && in >= 0 && out >= 0 && err >= 0 && connect_stream(in, STDIN_FILENO) &&
           connect_stream(out, STDOUT_FILENO) && connect_stream(err, STDERR_FILENO);
}

// The descriptor a directory entry of /proc/self/fd stands for, -1 for "." and "..".
int listed_fd(const char *name)
{
    if (*name == '.')
        return -1;
    int number = 0;
    for (; *name >= '0' && *name <= '9' && number < INT_MAX / 10; ++name)
        number = number * 10 + (*name - '0');
    return number;
}

bool close_private_fds()
{
    const int listing = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listing < 0)
        return false;

    alignas(struct dirent64) char entries[kListingSize];
    ssize_t length = 0;
    while ((length = getdents64(listing, entries, sizeof entries)) > 0) {
        for (ssize_t at = 0; at < length;) {
            const auto *entry = reinterpret_cast<const struct dirent64 *>(entries + at);
            const int fd = listed_fd(entry->d_name);
            if (fd >= kFirstPrivateFd && fd != listing)
                close(fd);
            at += entry->d_reclen;
        }
    }
    close(listing);
    return length == 0;
}

[[noreturn]] void exec_child(pid_t parent, const ChildStreams &streams, const char *path, char **argv)
{
    reset_signals();
    if (!connect_streams(streams) || !close_private_fds())
        _exit(kNotExecuted);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) // it ended before it could be told to take this child along
        _exit(kNotExecuted);
    execv(path, argv);
    _exit(kNotExecuted);
}

// Returns the child's id, or -1 with errno.
pid_t fork_and_exec(const ChildStreams &streams, const char *path, char **argv)
{
    // No handler of the parent may run in the child, so signals stay blocked until their handling is reset.
    sigset_t all;
    sigset_t old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0)
        exec_child(parent, streams, path, argv);
    const int saved_errno = errno;
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    errno = saved_errno;
    return pid;
}

int wait_for(pid_t pid, int *status)
{
    while (waitpid(pid, status, 0) < 0) {
        if (errno != EINTR)
            return minus_errno();
    }
    return 0;
}

} // namespace

int ddal_common_spawn(pid_t *pid, FILE **to_child, FILE **from_child, int err_fd, const char *path, char **argv)
{
    Pipe input;
    Pipe output;
    if ((to_child && !input.make()) || (from_child && !output.make()))
        return minus_errno();

    // The streams are made first: once the child runs, nothing can fail any more.
    UniqueStream writer;
    UniqueStream reader;
    if (to_child && !(writer = UniqueStream::from(std::move(input.write_end), "a")))
        return minus_errno();
    if (from_child && !(reader = UniqueStream::from(std::move(output.read_end), "r")))
        return minus_errno();

    const ChildStreams streams = {input.read_end.get(), output.write_end.get(), err_fd};
    *pid = fork_and_exec(streams, path, argv);
    if (*pid < 0)
        return minus_errno();
    if (to_child)
        *to_child = writer.release();
    if (from_child)
        *from_child = reader.release();
    return 0;
}

int ddal_common_spawn_wait(pid_t pid, FILE *in_stream, FILE *out_stream, int *status)
{
    if (in_stream) {
        SigpipeGuard guard;
        errno = 0;
        if (fclose(in_stream) != 0 && errno == EPIPE)
            guard.caused();
    }
    if (out_stream)
        fclose(out_stream);
    return wait_for(pid, status);
}

int ddal_common_run(int out_fd, int err_fd, int *status, const char *path, char **argv)
{
    const pid_t pid = fork_and_exec({kNullDevice, out_fd, err_fd}, path, argv);
    if (pid < 0)
        return minus_errno();
    return wait_for(pid, status);
}

} // namespace ddal::core
