// Finds a node of the board by its path or by a descriptor.
#include "shim.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "page/protocol.h"

namespace vboard::shim {

namespace {

const Node *node_by_id(uint32_t id)
{
    const Page &p = *page();
    for (uint32_t i = 0; i < p.node_count && i < kMaxNodes; ++i)
        if (p.nodes[i].id == id)
            return &p.nodes[i];
    return nullptr;
}

// The daemon binds its end of a handed-out socket to a name with the numbers of the node and of the socket.
const Node *node_of_socket(int fd, uint32_t *serial)
{
    sockaddr_un peer{};
    socklen_t length = sizeof peer;
    if (syscall(SYS_getpeername, fd, &peer, &length) != 0 || peer.sun_family != AF_UNIX)
        return nullptr;
    const size_t header = offsetof(sockaddr_un, sun_path) + 1;
    if (length <= header || length >= sizeof peer || peer.sun_path[0] != '\0')
        return nullptr;
    peer.sun_path[length - offsetof(sockaddr_un, sun_path)] = '\0';
    const char *text = peer.sun_path + 1;
    if (!starts_with(text, kPeerPrefix))
        return nullptr;
    text += length_of(kPeerPrefix);
    uint32_t part[3] = {0, 0, 0}; // page inode, node, serial
    for (int i = 0; *text && i < 3; ++text) {
        if (*text == '/')
            ++i;
        else if (i < 3)
            part[i] = part[i] * 10 + static_cast<uint32_t>(*text - '0');
    }
    *serial = part[2];
    return node_by_id(part[1]);
}

bool describe(int fd, struct statx &info)
{
    return syscall(SYS_statx, fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_INO, &info) == 0;
}

} // namespace

const Node *node_by_path(const char *board_path)
{
    const Page &p = *page();
    for (uint32_t i = 0; i < p.node_count && i < kMaxNodes; ++i)
        if (same(p.nodes[i].path, board_path))
            return &p.nodes[i];
    return nullptr;
}

const char *line_behind(const char *terminal)
{
    constexpr const char *kFolder = "/dev/pts/";
    constexpr uint32_t kUnixPtySlaveMajor = 136;
    if (!starts_with(terminal, kFolder))
        return nullptr;
    uint32_t number = 0;
    for (const char *digit = terminal + length_of(kFolder); *digit; ++digit) {
        if (*digit < '0' || *digit > '9')
            return nullptr;
        number = number * 10 + static_cast<uint32_t>(*digit - '0');
    }
    for (const Terminal &line : page()->terminals)
        if (line.path[0] && line.device.load(std::memory_order_acquire) == (kUnixPtySlaveMajor << 20 | number))
            return line.path;
    return nullptr;
}

const Node *node_of(int fd, bool *is_device)
{
    KeepErrno keep;
    struct statx info;
    if (!describe(fd, info))
        return nullptr;
    if (is_device)
        *is_device = S_ISCHR(info.stx_mode);
    uint32_t serial = 0;
    if (S_ISSOCK(info.stx_mode))
        return node_of_socket(fd, &serial);
    if (!S_ISREG(info.stx_mode))
        return nullptr;
    const uint64_t device = uint64_t{info.stx_dev_major} << 32 | info.stx_dev_minor;
    const Page &p = *page();
    for (uint32_t i = 0; i < p.node_count && i < kMaxNodes; ++i)
        if (p.nodes[i].inode == info.stx_ino && p.nodes[i].device == device)
            return &p.nodes[i];
    return nullptr;
}

uint32_t serial_of(int fd)
{
    KeepErrno keep;
    uint32_t serial = 0;
    node_of_socket(fd, &serial);
    return serial;
}

void take_signal(int fd)
{
    KeepErrno keep;
    char marks[64];
    syscall(SYS_recvfrom, fd, marks, 1, MSG_OOB | MSG_DONTWAIT, nullptr, nullptr);
    // Earlier marks remain in the stream as ordinary bytes.
    while (syscall(SYS_recvfrom, fd, marks, sizeof marks, MSG_DONTWAIT, nullptr, nullptr) > 0)
        ;
}

const IoctlForm *ioctl_form(const Node &node, uint32_t request)
{
    const Page &p = *page();
    for (uint32_t i = 0; i < p.ioctl_count && i < kMaxIoctls; ++i)
        if (p.ioctls[i].node == node.id && p.ioctls[i].request == request)
            return &p.ioctls[i];
    return nullptr;
}

} // namespace vboard::shim
