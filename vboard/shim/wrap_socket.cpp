// Sockets: names and ports that are global on a host are private to a board.
#include "shim.h"

#include <linux/netlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>

#include "page/protocol.h"

namespace vboard::shim {

namespace {

union Address {
    sockaddr any;
    sockaddr_un local;
    sockaddr_in inet;
};

// The place that an address leads to.
enum class Place {
    kHost,  // the same on the board and on the host
    kBoard, // a place of the board
    // A place of the board that cannot be reached, with errno. The host's place must not be used instead.
    kNowhere,
};

// "\0/uptimed" with its padding becomes <board>/.vboard/names/uptimed.
Place local_name(const sockaddr_un &from, socklen_t length, bool binding, Address &to, socklen_t *to_length)
{
    const size_t header = offsetof(sockaddr_un, sun_path);
    char host[PATH_MAX];
    if (length <= header + 1)
        return Place::kHost;
    if (from.sun_path[0] == '\0') {
        char name[sizeof from.sun_path + 1];
        size_t n = 0;
        for (size_t i = 1; header + i < length && i < sizeof from.sun_path && from.sun_path[i]; ++i)
            if (from.sun_path[i] != '/')
                name[n++] = from.sun_path[i];
        name[n] = '\0';
        copy_text(host, sizeof host, page()->private_dir);
        append(host, sizeof host, "/names/");
        append(host, sizeof host, name);
    } else {
        char path[sizeof from.sun_path + 1];
        size_t n = 0;
        for (; header + n < length && n < sizeof from.sun_path && from.sun_path[n]; ++n)
            path[n] = from.sun_path[n];
        path[n] = '\0';
        Path where;
        if (!resolve(-100 /* AT_FDCWD */, path, kFollow | (binding ? unsigned{kWrite} : 0), where))
            return Place::kNowhere;
        copy_text(host, sizeof host, where.host);
    }
    if (length_of(host) >= sizeof to.local.sun_path) {
        errno = ENAMETOOLONG;
        return Place::kNowhere;
    }
    to = Address{};
    to.local.sun_family = AF_UNIX;
    copy_text(to.local.sun_path, sizeof to.local.sun_path, host);
    *to_length = sizeof to.local;
    return Place::kBoard;
}

Place board_port(const sockaddr_in &from, Address &to)
{
    const Page &p = *page();
    const uint32_t address = ntohl(from.sin_addr.s_addr);
    if (address >> 24 != 127 && address != 0)
        return Place::kHost;
    for (uint32_t i = 0; i < p.port_count && i < kMaxPorts; ++i)
        if (p.ports[i].board == ntohs(from.sin_port)) {
            to.inet = from;
            to.inet.sin_port = htons(p.ports[i].host);
            return Place::kBoard;
        }
    return Place::kHost;
}

Place translate(const sockaddr *address, socklen_t length, bool binding, Address &to, socklen_t *to_length)
{
    if (!address || length < sizeof address->sa_family)
        return Place::kHost;
    if (address->sa_family == AF_UNIX)
        return local_name(*reinterpret_cast<const sockaddr_un *>(address), length, binding, to, to_length);
    *to_length = sizeof to.inet;
    if (address->sa_family == AF_INET && length >= sizeof(sockaddr_in))
        return board_port(*reinterpret_cast<const sockaddr_in *>(address), to);
    return Place::kHost;
}

// Calls `call(address, length)` with the translated address. Returns -1 with errno if there is none.
template <typename Call>
long at_place(const sockaddr *address, socklen_t length, bool binding, Call call)
{
    Address to;
    socklen_t to_length = 0;
    switch (translate(address, length, binding, to, &to_length)) {
    case Place::kHost: return call(address, length);
    case Place::kBoard: return call(&to.any, to_length);
    case Place::kNowhere: break;
    }
    return -1;
}

} // namespace

bool is_in_network_of_board()
{
    const KeepErrno keep;
    char here[sizeof page()->network];
    const long n = syscall(SYS_readlinkat, -100 /* AT_FDCWD */, "/proc/self/ns/net", here, sizeof here - 1);
    if (n <= 0)
        return false;
    here[n] = '\0';
    return same(page()->network, here);
}

namespace {

// Reports a socket that sees or configures only the machine's network. Generic netlink carries ethtool requests.
bool is_of_machine(int domain, int type, int protocol)
{
    if (domain == AF_NETLINK)
        return protocol == NETLINK_ROUTE || protocol == NETLINK_NETFILTER || protocol == NETLINK_XFRM ||
               protocol == NETLINK_GENERIC;
    const int kind = type & 0xf; // without SOCK_NONBLOCK and the like
    if (domain == AF_INET || domain == AF_INET6)
        return kind == SOCK_RAW || kind == SOCK_PACKET;
    return domain == AF_PACKET;
}

} // namespace

WRAP(int, socket, int domain, int type, int protocol)
{
    Call around("socket", "");
    if (is_of_machine(domain, type, protocol) && !is_in_network_of_board()) {
        errno = EPERM;
        return -1;
    }
    return around.fails() ? -1 : static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

namespace {

bool is_bus(const sockaddr *address)
{
    if (address->sa_family != AF_UNIX)
        return false;
    char bus[PATH_MAX];
    copy_text(bus, sizeof bus, page()->private_dir);
    append(bus, sizeof bus, "/bus");
    return same(reinterpret_cast<const sockaddr_un *>(address)->sun_path, bus);
}

// The daemon starts the message bus for the first program that connects to it.
long connect_to(int fd, const sockaddr *to, socklen_t length, bool is_translated)
{
    const long result = syscall(SYS_connect, fd, to, length);
    const bool is_absent = result != 0 && (errno == ENOENT || errno == ECONNREFUSED);
    if (!is_absent || !is_translated || !is_bus(to) || start_bus() != 0)
        return result;
    return syscall(SYS_connect, fd, to, length);
}

} // namespace

WRAP(int, connect, int fd, const sockaddr *address, socklen_t length)
{
    Call around("connect", "");
    if (around.fails())
        return -1;
    return static_cast<int>(at_place(address, length, false, [=](const sockaddr *to, socklen_t to_length) {
        return connect_to(fd, to, to_length, to != address);
    }));
}

WRAP(int, bind, int fd, const sockaddr *address, socklen_t length)
{
    return static_cast<int>(at_place(address, length, true, [=](const sockaddr *to, socklen_t to_length) {
        return syscall(SYS_bind, fd, to, to_length);
    }));
}

WRAP(ssize_t, sendto, int fd, const void *buffer, size_t length, int flags, const sockaddr *address, socklen_t size)
{
    Call around("send", fd);
    if (around.fails())
        return -1;
    return at_place(address, size, false, [=](const sockaddr *to, socklen_t to_length) {
        return syscall(SYS_sendto, fd, buffer, length, flags, to, to_length);
    });
}

WRAP(ssize_t, send, int fd, const void *buffer, size_t length, int flags)
{
    Call around("send", fd);
    return around.fails() ? -1 : syscall(SYS_sendto, fd, buffer, length, flags, nullptr, 0);
}

WRAP(ssize_t, sendmsg, int fd, const msghdr *message, int flags)
{
    Call around("send", fd);
    if (around.fails())
        return -1;
    const auto *address = static_cast<const sockaddr *>(message->msg_name);
    return at_place(address, message->msg_namelen, false, [=](const sockaddr *to, socklen_t to_length) {
        msghdr copy = *message;
        copy.msg_name = const_cast<sockaddr *>(to);
        copy.msg_namelen = to_length;
        return syscall(SYS_sendmsg, fd, &copy, flags);
    });
}

WRAP(ssize_t, recv, int fd, void *buffer, size_t length, int flags)
{
    Call around("recv", fd);
    if (around.fails())
        return -1;
    if (around.limits(&length) && length == 0)
        return 0;
    return syscall(SYS_recvfrom, fd, buffer, length, flags, nullptr, nullptr);
}

WRAP_AS(ssize_t, recv_chk, "__recv_chk", int fd, void *buffer, size_t length, size_t, int flags)
{
    return shim_recv(fd, buffer, length, flags);
}

WRAP(int, setsockopt, int fd, int level, int option, const void *value, socklen_t length)
{
    Call around("setsockopt", "");
    if (around.fails())
        return -1;
    timeval scaled;
    if (speed() > 1 && level == SOL_SOCKET && (option == SO_RCVTIMEO || option == SO_SNDTIMEO) &&
        length == sizeof scaled) {
        const auto *asked = static_cast<const timeval *>(value);
        const int64_t host = board_to_host((int64_t{asked->tv_sec} * 1000000 + asked->tv_usec) * 1000) / 1000;
        scaled.tv_sec = static_cast<time_t>(host / 1000000);
        scaled.tv_usec = static_cast<suseconds_t>(host % 1000000);
        value = &scaled;
    }
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, option, value, length));
}

WRAP(int, eventfd, unsigned value, int flags)
{
    Call around("eventfd", "");
    return around.fails() ? -1 : static_cast<int>(syscall(SYS_eventfd2, value, flags));
}

// Board and host have different interfaces.
WRAP(unsigned, if_nametoindex, const char *name)
{
    if (is_in_network_of_board())
        return NEXT(unsigned(const char *), if_nametoindex)(name);
    if (starts_with(name, "eth") && name[3] >= '0' && name[3] <= '3' && !name[4])
        return static_cast<unsigned>(2 + name[3] - '0');
    if (same(name, "lo"))
        return 1;
    errno = ENODEV;
    return 0;
}

} // namespace vboard::shim
