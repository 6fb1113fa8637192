#include "daemon/peer.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "daemon/log.h"

namespace vboard {

namespace {

bool is_trusted(uid_t user)
{
    return user == 0 || user == geteuid();
}

UniqueFd open_spare()
{
    return UniqueFd{open("/dev/null", O_RDONLY | O_CLOEXEC)};
}

} // namespace

bool is_trusted_local_peer(int fd)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && is_trusted(peer.uid);
}

// The kernel's table names the user of each socket. The peer's own entry has our address as its remote one.
bool is_trusted_tcp_peer(int fd)
{
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t own_length = sizeof own;
    socklen_t peer_length = sizeof peer;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&own), &own_length) != 0 ||
        getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &peer_length) != 0)
        return false;
    std::ifstream table("/proc/self/net/tcp");
    if (!table)
        return true; // without /proc nobody can tell
    for (std::string line; std::getline(table, line);) {
        unsigned local = 0, local_port = 0, remote = 0, remote_port = 0, user = 0;
        if (sscanf(line.c_str(), " %*u: %x:%x %x:%x %*x %*s %*s %*s %u", &local, &local_port, &remote, &remote_port,
                   &user) == 5 &&
            local == peer.sin_addr.s_addr && local_port == ntohs(peer.sin_port) && remote == own.sin_addr.s_addr &&
            remote_port == ntohs(own.sin_port))
            return is_trusted(user);
    }
    return false;
}

Acceptor::Acceptor(UniqueFd listener) : listener_(std::move(listener)), spare_(open_spare()) {}

UniqueFd Acceptor::accept()
{
    UniqueFd accepted{accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
    if (accepted || (errno != EMFILE && errno != ENFILE))
        return accepted;
    log_line("a connection is refused: too many descriptors are open");
    spare_ = UniqueFd{};
    { // ends the connection
        const UniqueFd refused{accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    }
    spare_ = open_spare();
    return UniqueFd{};
}

} // namespace vboard
