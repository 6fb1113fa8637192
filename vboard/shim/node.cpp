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

bool is_open_as(const Node &node, uint16_t type)
{
    return type == (node.kind == NodeKind::kModel ? S_IFDIR : S_IFREG);
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
    if (!S_ISREG(info.stx_mode) && !S_ISDIR(info.stx_mode))
        return nullptr;
    const uint64_t device = uint64_t{info.stx_dev_major} << 32 | info.stx_dev_minor;
    const Page &p = *page();
    for (uint32_t i = 0; i < p.node_count && i < kMaxNodes; ++i)
        if (p.nodes[i].inode == info.stx_ino && p.nodes[i].device == device &&
            is_open_as(p.nodes[i], info.stx_mode & S_IFMT))
            return &p.nodes[i];
    return nullptr;
}

void place_of(const Node &node, const char *folder, char *out, size_t size)
{
    copy_text(out, size, page()->private_dir);
    append(out, size, "/");
    append(out, size, folder);
    append(out, size, "/");
    char *name = out + length_of(out);
    append(out, size, node.path + 1);
    for (; *name; ++name)
        if (*name == '/')
            *name = kNodeSlash;
}

const Node *node_named(const Path &path)
{
    const Node *node = node_by_path(path.board);
    if (!node || node->kind == NodeKind::kPlain)
        return nullptr;
    KeepErrno keep;
    struct statx info;
    const long failed = syscall(SYS_statx, AT_FDCWD, path.host, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &info);
    return failed || !S_ISSOCK(info.stx_mode) ? nullptr : node;
}

void lead_to_file(Path &path)
{
    const Node *node = path.policy == Policy::kBoard ? node_named(path) : nullptr;
    if (!node)
        return;
    place_of(*node, kNodeFiles, path.host, sizeof path.host);
}

int access_mode(const Node *node, int fd)
{
    const long flags = syscall(SYS_fcntl, fd, F_GETFL);
    if (flags < 0)
        return -1;
    const bool keeps_mode = node && (node->kind == NodeKind::kModel || node->kind == NodeKind::kAttribute);
    if (!keeps_mode || (flags & O_PATH))
        return static_cast<int>(flags & O_ACCMODE);
    return (flags & O_SYNC) == O_SYNC ? O_WRONLY : (flags & O_DSYNC) ? O_RDONLY : O_RDWR;
}

int flags_with_mode(int flags)
{
    constexpr int kKept = O_CLOEXEC | O_NONBLOCK; // O_RDONLY is 0
    const int mode = flags & O_ACCMODE;
    return (flags & kKept) | (mode == O_RDONLY ? O_DSYNC : mode == O_WRONLY ? O_SYNC : 0);
}

int descriptor_of(const char *board_path)
{
    char folder[48] = "/proc/";
    char digits[24];
    digits[23] = '\0';
    append(folder, sizeof folder, format_number(static_cast<uint64_t>(process_id()), digits + 23));
    append(folder, sizeof folder, "/fd/");
    if (!starts_with(board_path, folder))
        return -1;
    int fd = 0;
    for (const char *digit = board_path + length_of(folder); *digit; ++digit) {
        if (*digit < '0' || *digit > '9')
            return -1;
        fd = fd * 10 + (*digit - '0');
    }
    return fd;
}

int refuse_on_node(const char *call, const Node &node, int error)
{
    Exchange message{};
    message.op = static_cast<uint32_t>(Op::kRefused);
    message.node = node.id;
    message.request = static_cast<uint32_t>(error);
    message.out = call;
    message.out_length = static_cast<uint32_t>(length_of(call));
    exchange(message);
    errno = error;
    return -1;
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
