// A private connection made with direct system calls: an application that is tested with injected failures must not
// meet them inside the SDK.
#include "switch/exchange.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/mutex_lock.h"
#include "page/protocol.h"

namespace vboard::client_library {

namespace {

constexpr int kUnavailable = -16;
constexpr int kOutOfTheWay = 968; // descriptors from here on do not belong to the program

ddal::core::Mutex one_at_a_time;
int connection DDAL_GUARDED_BY(one_at_a_time) = -1;
pid_t owner DDAL_GUARDED_BY(one_at_a_time) = -1;

int connect_to_board()
{
    const char *page = getenv("VBOARD_PAGE");
    if (!page)
        return -1;
    std::string path = page;
    path.replace(path.rfind('/') + 1, std::string::npos, "socket");
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof name.sun_path)
        return -1;
    memcpy(name.sun_path, path.c_str(), path.size() + 1);
    const int fd = static_cast<int>(syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (fd < 0)
        return -1;
    int kept = -1;
    if (syscall(SYS_connect, fd, &name, sizeof name) == 0)
        kept = static_cast<int>(syscall(SYS_fcntl, fd, F_DUPFD_CLOEXEC, kOutOfTheWay));
    syscall(SYS_close, fd);
    return kept;
}

bool exchange(const std::string &payload, std::vector<int64_t> *out) DDAL_REQUIRES(one_at_a_time)
{
    RequestHeader request{};
    request.op = Op::kSwitch;
    iovec parts[2] = {{&request, sizeof request}, {const_cast<char *>(payload.data()), payload.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (syscall(SYS_sendmsg, connection, &message, MSG_NOSIGNAL) < 0)
        return false;

    static ReplyHeader reply;
    static int64_t words[kMaxPayload / sizeof(int64_t)];
    iovec in[2] = {{&reply, sizeof reply}, {words, sizeof words}};
    message.msg_iov = in;
    long n = 0;
    do
        n = syscall(SYS_recvmsg, connection, &message, MSG_CMSG_CLOEXEC);
    while (n < 0 && errno == EINTR);
    if (n < static_cast<long>(sizeof reply) || reply.result < 0)
        return false;
    out->assign(words, words + (static_cast<size_t>(n) - sizeof reply) / sizeof(int64_t));
    return !out->empty();
}

} // namespace

Answer call(const char *name, const std::vector<int64_t> &in)
{
    const int saved_errno = errno;
    const ddal::core::MutexLock lock(one_at_a_time);
    std::string payload(kSwitchCallName, '\0');
    payload.replace(0, strlen(name), name);
    payload.append(reinterpret_cast<const char *>(in.data()), in.size() * sizeof(int64_t));

    // Makes the connection anew after a fork, or after the program has closed the descriptor.
    const auto self = static_cast<pid_t>(syscall(SYS_getpid));
    if (owner != self || connection < 0 || syscall(SYS_fcntl, connection, F_GETFD) < 0) {
        connection = connect_to_board();
        owner = self;
    }
    std::vector<int64_t> out;
    const bool answered = connection >= 0 && exchange(payload, &out);
    errno = saved_errno;
    if (!answered)
        return {kUnavailable, {}};
    return {static_cast<int>(out[0]), {out.begin() + 1, out.end()}};
}

} // namespace vboard::client_library
