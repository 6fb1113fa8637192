#include "cli/network.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "client/client.h"
#include "core/unique_fd.h"

namespace vboard {

using ddal::core::UniqueFd;

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw ClientError("cannot create the network namespace of --real-net (" + what + ": " + std::strerror(errno) +
                      "); it requires root or user namespaces; nothing was run");
}

void write_once(const char *path, const std::string &text)
{
    const UniqueFd file{open(path, O_WRONLY | O_CLOEXEC)};
    if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        fail(path);
}

// An unprivileged user can create a network namespace as the root of a user namespace.
void enter_as_user()
{
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        fail("unshare");
    write_once("/proc/self/setgroups", "deny");
    write_once("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write_once("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

} // namespace

bool bring_up_loopback()
{
    const UniqueFd sock{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    return sock && ioctl(sock.get(), SIOCSIFFLAGS, &request) == 0;
}

void enter_own_network()
{
    if (unshare(CLONE_NEWNET) != 0)
        enter_as_user();
    if (!bring_up_loopback())
        fail("lo");
}

} // namespace vboard
