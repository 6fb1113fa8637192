#include "injector.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "board_text.h"

namespace campaign {

namespace {

// How each call can plausibly fail; closed by 0.
struct Failures {
    int call;
    const char *name;
    int errors[3];
};

constexpr Failures kFailures[] = {
    {SYS_openat, "openat", {EMFILE, EINTR, 0}},
    {SYS_read, "read", {EINTR, EIO, 0}},
    {SYS_write, "write", {EINTR, ENOSPC, 0}},
    {SYS_pread64, "pread", {EINTR, EIO, 0}},
    {SYS_pwrite64, "pwrite", {EINTR, ENOSPC, 0}},
    {SYS_close, "close", {EIO, 0, 0}},
    {SYS_lseek, "lseek", {EINVAL, 0, 0}},
    {SYS_newfstatat, "fstat", {EIO, 0, 0}},
    {SYS_ioctl, "ioctl", {EINTR, EIO, 0}},
    {SYS_fcntl, "fcntl", {EMFILE, 0, 0}},
    {SYS_mmap, "mmap", {ENOMEM, 0, 0}},
    {SYS_flock, "flock", {EINTR, ENOLCK, 0}},
    {SYS_pipe2, "pipe2", {EMFILE, 0, 0}},
    {SYS_eventfd2, "eventfd", {EMFILE, 0, 0}},
    {SYS_socket, "socket", {EMFILE, 0, 0}},
    {SYS_connect, "connect", {ECONNREFUSED, 0, 0}},
    {SYS_sendto, "sendto", {EINTR, ENOBUFS, 0}},
    {SYS_sendmsg, "sendmsg", {EINTR, ENOBUFS, 0}},
    {SYS_recvfrom, "recvfrom", {EINTR, ECONNRESET, 0}},
    {SYS_recvmsg, "recvmsg", {EINTR, ECONNRESET, 0}},
    {SYS_poll, "poll", {EINTR, ENOMEM, 0}},
    {SYS_select, "select", {EINTR, ENOMEM, 0}},
    {SYS_pselect6, "pselect", {EINTR, ENOMEM, 0}},
    {SYS_wait4, "wait4", {EINTR, 0, 0}},
    {SYS_clone, "clone", {EAGAIN, 0, 0}},
    {SYS_clone3, "clone3", {EAGAIN, 0, 0}},
    {SYS_fsync, "fsync", {EIO, 0, 0}},
    {SYS_fdatasync, "fdatasync", {EIO, ENOSPC, 0}},
    {SYS_ftruncate, "ftruncate", {EIO, 0, 0}},
    {SYS_splice, "splice", {EINTR, EIO, 0}},
    {SYS_clock_nanosleep, "nanosleep", {EINTR, 0, 0}},
    {SYS_getdents64, "getdents", {EIO, 0, 0}},
    {SYS_futex, "futex", {0, 0, 0}}, // seen for cancellation only
};

const Failures *failures_of(int call)
{
    const auto found =
        std::find_if(std::begin(kFailures), std::end(kFailures), [&](const Failures &f) { return f.call == call; });
    return found == std::end(kFailures) ? nullptr : found;
}

// Where the board's preload library makes its calls: in its own text, and in libc's syscall(), which the library under
// test uses for what libc has no name for.
bool is_of_the_board(uintptr_t at)
{
    static const auto raw = reinterpret_cast<uintptr_t>(dlsym(dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD), "syscall"));
    return (at >= raw && at < raw + 64) || std::any_of(board_text().begin(), board_text().end(),
                                                       [&](const TextRange &r) { return at >= r.from && at < r.to; });
}

pid_t process_of(pid_t thread)
{
    std::ifstream status("/proc/" + std::to_string(thread) + "/status");
    for (std::string word; status >> word;)
        if (word == "Tgid:" && status >> word)
            return std::stoi(word);
    return 0;
}

} // namespace

void hand_over_calls(Report &report)
{
    std::vector<sock_filter> program{{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)}};
    constexpr size_t kCount = std::size(kFailures);
    for (size_t i = 0; i < kCount; ++i)
        program.push_back(
            {BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint8_t>(kCount - i), 0, static_cast<uint32_t>(kFailures[i].call)});
    program.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW});
    program.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_USER_NOTIF});
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const long listener = syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter);
    if (listener < 0) {
        strcpy(report.trouble, "the kernel takes no filter");
        return;
    }
    report.listener = static_cast<int>(listener) + 1;
    while (report.attached == 0) {
    } // makes no call until somebody answers
    close(static_cast<int>(listener));
}

Injector::Injector(const Condition &condition, Report &report, pid_t process)
    : condition_(condition), report_(report), process_(process),
      pidfd_(static_cast<int>(syscall(SYS_pidfd_open, process, 0)))
{
}

Injector::~Injector()
{
    for (const int fd : {pidfd_, listener_})
        if (fd >= 0)
            close(fd);
}

int Injector::descriptor()
{
    if (listener_ < 0 && report_.listener > 0 && report_.attached == 0) {
        listener_ = static_cast<int>(syscall(SYS_pidfd_getfd, pidfd_, report_.listener - 1, 0));
        if (listener_ >= 0)
            report_.attached = 1;
    }
    return listener_;
}

bool Injector::is_of_library(const seccomp_notif &call)
{
    if (report_.stage != Report::kInside || is_of_the_board(call.data.instruction_pointer))
        return false;
    return condition_.name == "cancel" ? static_cast<pid_t>(call.pid) == report_.caller
                                       : process_of(static_cast<pid_t>(call.pid)) == process_;
}

void Injector::answer()
{
    seccomp_notif call{};
    if (ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0)
        return;
    seccomp_notif_resp response{};
    response.id = call.id;
    response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    const Failures *const failures = failures_of(call.data.nr);
    const bool counts = failures && (condition_.name == "cancel" || failures->errors[0] != 0);
    if (counts && is_of_library(call) && ++seen_ == condition_.number) {
        place_ = failures->name;
        reached_ = true;
        if (condition_.name == "cancel") {
            // The call waits here, a cancellation point or not, until the other thread has cancelled it.
            report_.cancel = 1;
            for (int i = 0; i < 20000 && report_.cancel == 1; ++i)
                usleep(50);
        } else if (condition_.variant < 3 && failures->errors[condition_.variant] != 0) {
            response.flags = 0;
            response.error = -failures->errors[condition_.variant];
            place_ += std::string(" ") + strerrorname_np(-response.error);
            // A real close that fails has closed all the same; a descriptor is not to be lost by the injection.
            if (call.data.nr == SYS_close)
                response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE, response.error = 0;
        } else {
            exhausted_ = true;
        }
    }
    ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &response);
}

} // namespace campaign
