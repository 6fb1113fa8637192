#include "core/supervisor.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/libc_calls.h"
#include "core/log.h"
#include "core/mapping.h"

namespace ddal::core {

namespace {

constexpr int kNotExecuted = 127;
constexpr size_t kListingSize = 4096;
constexpr size_t kStackSize = 256 << 10; // libraries in front of execv may need much; untouched pages cost nothing
constexpr size_t kStageSize = 3 * kStackSize;

// Lies at the start of memory that the caller and the supervisor share; behind it are the two stacks.
struct Stage {
    const ChildStreams *streams;
    const char *path;
    char **argv;
    pid_t caller;

    pid_t supervisor = -1;
    Stage *next = nullptr; // the one that the thread started before this one

    std::atomic<int> error{0}; // errno of a program that could not be started
    std::atomic<int> status{0};
    std::atomic<bool> ended{false};

    void *supervisor_stack() { return reinterpret_cast<char *>(this) + 2 * kStackSize; }
    void *program_stack() { return reinterpret_cast<char *>(this) + 3 * kStackSize; }
};

// A thread waits only for the programs that it has started. The list needs no lock, which a forked child could find
// taken.
constinit thread_local Stage *started = nullptr;

// The functions of a child make only async-signal-safe calls: another thread of the caller may have held any lock. None
// of them is [[noreturn]]: sanitizers would look there for the stack of the thread.

void reset_handling()
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &standard, nullptr); // fails harmlessly for SIGKILL, SIGSTOP and the C library's signals
}

// Opens without the stand-in, which may wait for a lock.
int open_in_child(const char *path, int flags)
{
    return __real_open64(path, flags | O_CLOEXEC);
}

// Returns a copy of `fd` above the standard streams, so that setting up one of them never overwrites another's source.
// Returns the null device for a descriptor that the caller has closed, even while another thread's call occupies its
// number.
int lift(int fd, int null_fd)
{
    const int flags = fd == kNullDevice ? -1 : fcntl(fd, F_GETFL);
    return flags < 0 || flags & O_PATH ? null_fd : fcntl(fd, F_DUPFD_CLOEXEC, kStandardStreams);
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
    const int opened = open_in_child("/dev/null", O_RDWR);
    if (opened < 0)
        return false;
    const int null_fd = lift(opened, opened);
    const int in = lift(streams.in, null_fd);
    const int out = lift(streams.out, null_fd);
    const int err = lift(streams.err, null_fd);
    return null_fd >= 0 && in >= 0 && out >= 0 && err >= 0 && connect_stream(in, STDIN_FILENO) &&
           connect_stream(out, STDOUT_FILENO) && connect_stream(err, STDERR_FILENO);
}

// Returns the descriptor that an entry of /proc/self/fd stands for, or -1 for "." and "..".
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
    const int listing = open_in_child("/proc/self/fd", O_RDONLY | O_DIRECTORY);
    if (listing < 0)
        return false;

    alignas(struct dirent64) char entries[kListingSize];
    ssize_t length = 0;
    while ((length = getdents64(listing, entries, sizeof entries)) > 0) {
        for (ssize_t at = 0; at < length;) {
            const auto *entry = reinterpret_cast<const struct dirent64 *>(entries + at);
            const int fd = listed_fd(entry->d_name);
            if (fd >= kStandardStreams && fd != listing)
                close(fd);
            at += entry->d_reclen;
        }
    }
    close(listing);
    return length == 0;
}

// Requests `signal` for the end of the parent. Returns false if the parent has already ended.
bool dies_with(pid_t parent, int signal)
{
    prctl(PR_SET_PDEATHSIG, signal);
    return getppid() == parent;
}

struct Program {
    const Stage *stage;
    pid_t supervisor;
};

int execute(void *argument)
{
    const Program &program = *static_cast<const Program *>(argument);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (dies_with(program.supervisor, SIGTERM))
        execv(program.stage->path, program.stage->argv);
    return kNotExecuted;
}

int wait_for(pid_t pid, int *status)
{
    while (waitpid(pid, status, __WALL) < 0) {
        if (errno != EINTR)
            return minus_errno();
    }
    return 0;
}

// Starts the program, waits for it and returns its wait status, or a negative errno.
int run_to_end(Stage &stage)
{
    Program program = {&stage, getpid()};
    const pid_t pid = clone(execute, stage.program_stack(), CLONE_VM | CLONE_VFORK | SIGCHLD, &program);
    if (pid < 0)
        return minus_errno();
    for (int fd = 0; fd < kStandardStreams; ++fd)
        close(fd); // the caller sees the end of the output as soon as the program closes it
    int status = 0;
    const int waited = wait_for(pid, &status);
    return waited < 0 ? waited : status;
}

// All signals stay blocked: a signal from the terminal to the process group is for the program alone. Only SIGKILL ends
// the supervisor, together with its caller.
int supervise(void *argument)
{
    Stage &stage = *static_cast<Stage *>(argument);
    prctl(PR_SET_NAME, "ddal-supervisor");
    reset_handling();
    int result = W_EXITCODE(kNotExecuted, 0);
    if (connect_streams(*stage.streams) && close_private_fds() && dies_with(stage.caller, SIGKILL))
        result = run_to_end(stage);
    if (result < 0)
        stage.error = -result;
    stage.status = result;
    stage.ended = true;
    return 0;
}

} // namespace

pid_t start_supervised(const ChildStreams &streams, const char *path, char **argv)
{
    Mapping memory{kStageSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0};
    if (!memory)
        return -1;
    auto *stage = new (memory.get()) Stage{&streams, path, argv, getpid()};

    // No handler of the caller may run in the child, so signals stay blocked until their handling is reset.
    sigset_t all;
    sigset_t old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    const pid_t pid = clone(supervise, stage->supervisor_stack(), 0, stage);
    const int saved_errno = errno;
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    errno = saved_errno;
    if (pid < 0)
        return -1;
    stage->supervisor = pid;
    stage->next = started;
    started = stage;
    memory.release();
    return pid;
}

int wait_supervised(pid_t supervisor, int *status)
{
    Stage **place = &started;
    while (*place && (*place)->supervisor != supervisor)
        place = &(*place)->next;
    if (!*place)
        return -ECHILD;
    Stage *stage = *place;
    *place = stage->next;
    const Mapping memory{stage, kStageSize};

    int end = 0;
    const int waited = wait_for(supervisor, &end);
    if (stage->error != 0)
        return -stage->error;
    if (!stage->ended)
        *status = end;
    else
        *status = stage->status; // valid even when the application has reaped the supervisor
    return stage->ended || WIFSIGNALED(end) ? 0 : (waited < 0 ? waited : -ECHILD);
}

} // namespace ddal::core
