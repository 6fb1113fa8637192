#include "injector.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "board_text.h"

namespace campaign {

namespace {

constexpr int kShort = -1; // moves half of the bytes

// The type of file behind a descriptor decides how a call on it can fail.
enum Files : unsigned { kDisk = 1, kPipe = 2, kSocket = 4, kDevice = 8, kAny = 15 };

struct Failure {
    int error; // or kShort
    unsigned files = kAny;
};

// Plausible failures of each call. A call without a failure is watched only for cancellation.
struct Failures {
    int call;
    const char *name;
    Failure ways[3];
};

constexpr Failures kFailures[] = {
    {SYS_openat, "openat", {{EMFILE}, {EINTR}}},
    {SYS_read, "read", {{EINTR}, {EIO, kDisk | kDevice}, {kShort, kDisk | kPipe}}},
    {SYS_write, "write", {{EINTR}, {ENOSPC, kDisk | kDevice}, {kShort, kDisk | kPipe}}},
    {SYS_pread64, "pread", {{EINTR}, {EIO, kDisk | kDevice}, {kShort, kDisk}}},
    {SYS_pwrite64, "pwrite", {{EINTR}, {ENOSPC, kDisk | kDevice}, {kShort, kDisk}}},
    {SYS_close, "close", {{EIO, kDisk | kDevice}}},
    {SYS_lseek, "lseek", {{EIO, kDisk | kDevice}}},
    {SYS_newfstatat, "fstat", {{EIO}}},
    {SYS_ioctl, "ioctl", {{EINTR}, {EIO}}},
    {SYS_fcntl, "fcntl", {{EMFILE}}},
    {SYS_mmap, "mmap", {{ENOMEM}}},
    {SYS_flock, "flock", {{EINTR}, {ENOLCK}}},
    {SYS_pipe2, "pipe2", {{EMFILE}}},
    {SYS_eventfd2, "eventfd", {{EMFILE}}},
    {SYS_socket, "socket", {{EMFILE}}},
    {SYS_connect, "connect", {{ECONNREFUSED}}},
    {SYS_sendto, "sendto", {{EINTR}, {ENOBUFS}}},
    {SYS_sendmsg, "sendmsg", {{EINTR}, {ENOBUFS}}},
    {SYS_recvfrom, "recvfrom", {{EINTR}, {ECONNRESET}}},
    {SYS_recvmsg, "recvmsg", {{EINTR}, {ECONNRESET}}},
    {SYS_poll, "poll", {{EINTR}, {ENOMEM}}},
    {SYS_select, "select", {{EINTR}, {ENOMEM}}},
    {SYS_pselect6, "pselect", {{EINTR}, {ENOMEM}}},
    {SYS_wait4, "wait4", {{EINTR}}},
    {SYS_clone, "clone", {{EAGAIN}}},
    {SYS_clone3, "clone3", {{EAGAIN}}},
    {SYS_fsync, "fsync", {{EIO}}},
    {SYS_fdatasync, "fdatasync", {{EIO}, {ENOSPC}}},
    {SYS_ftruncate, "ftruncate", {{EIO}}},
    {SYS_splice, "splice", {{EINTR}, {EIO, kDisk}}},
    {SYS_clock_nanosleep, "nanosleep", {{EINTR}}},
    {SYS_getdents64, "getdents", {{EIO}}},
    {SYS_futex, "futex", {}},
};

const Failures *failures_of(int call)
{
    const auto found =
        std::find_if(std::begin(kFailures), std::end(kFailures), [&](const Failures &f) { return f.call == call; });
    return found == std::end(kFailures) ? nullptr : found;
}

unsigned kind_of(pid_t process, uint64_t descriptor)
{
    struct stat status {};
    const std::string link = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(static_cast<int>(descriptor));
    if (stat(link.c_str(), &status) != 0)
        return kAny;
    return S_ISFIFO(status.st_mode)   ? kPipe
           : S_ISSOCK(status.st_mode) ? kSocket
           : S_ISCHR(status.st_mode)  ? kDevice
                                      : kDisk;
}

// A thread that blocks all signals cannot be interrupted.
bool holds_signals(pid_t thread)
{
    std::ifstream status("/proc/" + std::to_string(thread) + "/status");
    for (std::string word; status >> word;)
        if (word == "SigBlk:" && status >> word)
            return std::stoull(word, nullptr, 16) >> (SIGALRM - 1) & 1;
    return false;
}

// Returns the ways in which this call can fail.
std::vector<int> ways_of(const Failures &failures, const seccomp_notif &call, pid_t process)
{
    const bool duplicates = call.data.args[1] == F_DUPFD || call.data.args[1] == F_DUPFD_CLOEXEC;
    if (failures.call == SYS_fcntl && !duplicates)
        return {};
    std::vector<int> ways;
    for (const Failure &way : failures.ways)
        if (way.error != 0 && (way.files == kAny || way.files & kind_of(process, call.data.args[0])) &&
            (way.error != EINTR || !holds_signals(static_cast<pid_t>(call.pid))))
            ways.push_back(way.error);
    return ways;
}

// Reports a call of the board's preload library: in the library's text, or in libc's syscall(), which the library under
// test does not use.
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
    } // makes no call until the campaign answers
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

// Performs half of a transfer. Returns the bytes moved, or 0 if the transfer cannot be halved.
long Injector::move_half(const seccomp_notif &call) const
{
    const bool reads = call.data.nr == SYS_read || call.data.nr == SYS_pread64;
    const bool placed = call.data.nr == SYS_pread64 || call.data.nr == SYS_pwrite64;
    const auto [descriptor, address, count, offset] =
        std::tuple(call.data.args[0], call.data.args[1], call.data.args[2], call.data.args[3]);
    const long fd = syscall(SYS_pidfd_getfd, pidfd_, descriptor, 0);
    struct stat status {};
    if (fd < 0)
        return 0;
    __u64 there = count;
    if (int waiting = 0; reads && ioctl(static_cast<int>(fd), FIONREAD, &waiting) == 0 && waiting >= 0)
        there = static_cast<__u64>(waiting);
    if (fstat(static_cast<int>(fd), &status) == 0 && S_ISREG(status.st_mode) && placed && reads)
        there = static_cast<__u64>(std::max<off_t>(status.st_size - static_cast<off_t>(offset), 0));
    std::vector<char> bytes(std::min({count, there, __u64{1} << 20}) / 2);
    const iovec here{bytes.data(), bytes.size()};
    const iovec others{reinterpret_cast<void *>(address), bytes.size()}; // NOLINT(performance-no-int-to-ptr)
    long moved = 0;
    if (!reads && process_vm_readv(process_, &here, 1, &others, 1, 0) < 0)
        bytes.clear();
    if (!bytes.empty()) // directly, because the board's preload library must not take part
        moved = placed ? syscall(call.data.nr, fd, bytes.data(), bytes.size(), offset)
                       : syscall(call.data.nr, fd, bytes.data(), bytes.size());
    if (reads && moved > 0)
        process_vm_writev(process_, &here, 1, &others, 1, 0);
    syscall(SYS_close, fd);
    return std::max(moved, 0L);
}

// A close that fails has still closed the descriptor. The null device takes its number until the try frees it.
bool Injector::close_behind(const seccomp_notif &call)
{
    const long null = syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC);
    seccomp_notif_addfd taking{};
    taking.id = call.id;
    taking.flags = SECCOMP_ADDFD_FLAG_SETFD;
    taking.srcfd = static_cast<uint32_t>(null);
    taking.newfd = static_cast<uint32_t>(call.data.args[0]);
    taking.newfd_flags = O_CLOEXEC;
    const bool taken = ioctl(listener_, SECCOMP_IOCTL_NOTIF_ADDFD, &taking) >= 0;
    syscall(SYS_close, null);
    if (taken)
        report_.occupied = static_cast<int>(call.data.args[0]) + 1;
    return taken;
}

// A sleep that a signal ends at once leaves all of its time.
void Injector::leave_all_time(const seccomp_notif &call) const
{
    timespec time{};
    const iovec here{&time, sizeof time};
    const iovec asked{reinterpret_cast<void *>(call.data.args[2]), sizeof time}; // NOLINT(performance-no-int-to-ptr)
    const iovec left{reinterpret_cast<void *>(call.data.args[3]), sizeof time};  // NOLINT(performance-no-int-to-ptr)
    process_vm_readv(process_, &here, 1, &asked, 1, 0);
    process_vm_writev(process_, &here, 1, &left, 1, 0);
}

// Returns false when the call continues undisturbed.
bool Injector::fail(const seccomp_notif &call, int way, seccomp_notif_resp &response)
{
    if (way == kShort) {
        response.val = move_half(call);
        place_ += " of half";
        return response.val > 0;
    }
    if (call.data.nr == SYS_clock_nanosleep && call.data.args[3] != 0)
        leave_all_time(call);
    place_ += std::string(" ") + strerrorname_np(way);
    if (call.data.nr == SYS_clone3)
        place_ += " of thread " + std::to_string(threads_);
    response.error = -way;
    return call.data.nr != SYS_close || close_behind(call);
}

void Injector::answer()
{
    seccomp_notif call{};
    if (ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0)
        return;
    seccomp_notif_resp response{};
    response.id = call.id;
    response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    const Failures *const failures = is_of_library(call) ? failures_of(call.data.nr) : nullptr;
    const bool cancels = condition_.name == "cancel";
    threads_ += failures && call.data.nr == SYS_clone3;
    const std::vector<int> ways = failures && !cancels ? ways_of(*failures, call, process_) : std::vector<int>{};
    if (failures && (cancels || !ways.empty()) && ++seen_ == condition_.number) {
        place_ = failures->name;
        variants_ = cancels ? 1 : static_cast<int>(ways.size());
        if (cancels) {
            // The call waits here, whether it is a cancellation point or not, until the other thread has cancelled it.
            injected_ = true;
            report_.cancel = 1;
            for (int i = 0; i < 20000 && report_.cancel == 1; ++i)
                usleep(50);
        } else if (condition_.variant < variants_ &&
                   fail(call, ways[static_cast<size_t>(condition_.variant)], response)) {
            injected_ = true;
            response.flags = 0;
        } else {
            response.error = 0;
        }
    }
    ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &response);
}

} // namespace campaign
