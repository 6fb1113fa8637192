// One request to the daemon and its answer.
#include "shim.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "page/protocol.h"

namespace vboard::shim {

namespace {

constexpr int kFirstOwnDescriptor = 960; // below the usual limit of 1024, above what programs use
constexpr size_t kSignalSetSize = 8;

// One connection per thread. The owner is remembered, because a child after fork or vfork must not use its parent's.
struct Connection {
    int fd;
    pid_t owner;
    uint64_t inode;
};
__thread Connection t_connection __attribute__((tls_model("initial-exec"))) = {-1, 0, 0};
std::atomic<uint32_t> g_next_id{1};

struct Signals {
    uint64_t all = ~0ull;
    uint64_t saved = 0;
    Signals() { syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, &saved, kSignalSetSize); }
    ~Signals()
    {
        KeepErrno keep;
        syscall(SYS_rt_sigprocmask, SIG_SETMASK, &saved, nullptr, kSignalSetSize);
    }
};

uint64_t socket_inode(int fd)
{
    struct statx info;
    if (syscall(SYS_statx, fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_INO, &info) != 0)
        return 0;
    return (info.stx_mode & S_IFMT) == S_IFSOCK ? info.stx_ino : 0;
}

// Another user of the machine may have put a socket in place of the daemon's.
bool is_of_trusted_user(int fd)
{
#ifdef SYS_geteuid32
    const auto own = static_cast<uid_t>(syscall(SYS_geteuid32));
#else
    const auto own = static_cast<uid_t>(syscall(SYS_geteuid));
#endif
    ucred peer{};
    socklen_t length = sizeof peer;
    return syscall(SYS_getsockopt, fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           (peer.uid == 0 || peer.uid == own);
}

int connect_to_daemon()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    copy_text(address.sun_path, sizeof address.sun_path, page()->private_dir);
    append(address.sun_path, sizeof address.sun_path, "/socket");
    const int fd = static_cast<int>(syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (fd < 0)
        return -1;
    if (syscall(SYS_connect, fd, &address, sizeof address) != 0 || !is_of_trusted_user(fd)) {
        syscall(SYS_close, fd);
        return -1;
    }
    const int high = static_cast<int>(syscall(SYS_fcntl, fd, F_DUPFD_CLOEXEC, kFirstOwnDescriptor));
    if (high < 0)
        return fd;
    syscall(SYS_close, fd);
    return high;
}

// Returns the thread's connection. Makes a new one after a fork, or after the program has closed it.
int connection(bool *temporary)
{
    const pid_t self = process_id();
    Connection &c = t_connection;
    *temporary = false;
    if (c.fd >= 0 && c.owner == self && c.inode != 0 && socket_inode(c.fd) == c.inode)
        return c.fd;
    const int fd = connect_to_daemon();
    if (fd < 0)
        return -1;
    // A vfork child shares the thread's memory with its parent, so the parent's connection stays.
    if (c.fd >= 0 && c.owner != self) {
        *temporary = true;
        return fd;
    }
    c = {fd, self, socket_inode(fd)};
    return fd;
}

bool send_header(int fd, const RequestHeader &header, const void *payload, uint32_t length)
{
    iovec parts[2] = {{const_cast<RequestHeader *>(&header), sizeof header}, {const_cast<void *>(payload), length}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = length ? 2 : 1;
    return syscall(SYS_sendmsg, fd, &message, MSG_NOSIGNAL) >= 0;
}

// Waits for an answer. Returns true when a signal arrives first.
bool interrupted(int fd, const uint64_t &mask)
{
    pollfd wait{fd, POLLIN, 0};
#ifdef SYS_ppoll
    return syscall(SYS_ppoll, &wait, 1, nullptr, &mask, kSignalSetSize) < 0 && errno == EINTR;
#endif
}

long receive(int fd, Exchange &message, uint32_t id)
{
    for (;;) {
        ReplyHeader header{};
        iovec parts[2] = {{&header, sizeof header}, {message.in, message.in_length}};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr received{};
        received.msg_iov = parts;
        received.msg_iovlen = 2;
        received.msg_control = control;
        received.msg_controllen = sizeof control;
        const long n = syscall(SYS_recvmsg, fd, &received, MSG_CMSG_CLOEXEC);
        if (n < static_cast<long>(sizeof header))
            return n < 0 && errno == EINTR ? -EINTR : -EIO; // the daemon has ended
        if (header.id != id)
            continue; // the answer of a cancelled request
        const cmsghdr *attached = CMSG_FIRSTHDR(&received);
        if (attached && attached->cmsg_type == SCM_RIGHTS)
            memcpy(&message.received_fd, CMSG_DATA(attached), sizeof(int));
        return header.result;
    }
}

} // namespace

bool is_own_descriptor(int fd)
{
    return fd >= 0 && fd == t_connection.fd && t_connection.owner == process_id();
}

long exchange(Exchange &message)
{
    KeepErrno keep;
    const Signals signals;
    bool temporary = false;
    const int fd = connection(&temporary);
    if (fd < 0)
        return -EIO;
    RequestHeader header{};
    header.op = static_cast<Op>(message.op);
    header.node = message.node;
    header.id = g_next_id.fetch_add(1);
    header.request = message.request;
    header.offset = message.offset;
    header.length = message.in_length;
    header.flags = message.flags;
    header.pid = process_id();
    header.tid = thread_id();
    message.received_fd = -1;
    long result = -EIO;
    if (send_header(fd, header, message.out, message.out_length)) {
        if (interrupted(fd, signals.saved)) {
            RequestHeader cancel = header;
            cancel.op = Op::kCancel;
            send_header(fd, cancel, nullptr, 0);
        }
        result = receive(fd, message, header.id);
    }
    if (temporary)
        syscall(SYS_close, fd);
    return result;
}

// A thread that connects to the bus does not keep a connection to the daemon.
long start_bus()
{
    KeepErrno keep;
    const Signals signals;
    const int fd = connect_to_daemon();
    if (fd < 0)
        return -EIO;
    RequestHeader header{};
    header.op = Op::kBus;
    Exchange message{};
    message.received_fd = -1;
    const long result = send_header(fd, header, nullptr, 0) ? receive(fd, message, header.id) : -EIO;
    syscall(SYS_close, fd);
    return result;
}

} // namespace vboard::shim
