// Requests to devices and to network interfaces.
#include "shim.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <net/if.h>
#include <stdarg.h>
#include <sys/stat.h>

#include "page/protocol.h"

namespace vboard::shim {

namespace {

// Reports a request about routes or interfaces. Most carry a name and a record. Those of the host are never touched.
bool is_interface_request(uint32_t request)
{
    return request >= 0x890b && request <= 0x89ff;
}

long interface_request(uint32_t request, ifreq *argument)
{
    constexpr uint32_t kListOfInterfaces = 0x8912; // has another record, and no model answers it
    constexpr uint32_t kEthtool = 0x8946;
    constexpr uint32_t kReadMii = 0x8948;
    constexpr uint32_t kWriteMii = 0x8949;
    if (request == kListOfInterfaces)
        return -EOPNOTSUPP;
    if (!argument)
        return -EFAULT;
    InterfaceRequest body{};
    copy_text(body.name, sizeof body.name, argument->ifr_name);
    const bool mii = request == kReadMii || request == kWriteMii;
    char *record = nullptr;
    size_t size = 0;
    if (mii) { // in the place of the flags: address, register and two values
        record = reinterpret_cast<char *>(&argument->ifr_ifru);
        size = 8;
    } else {
        body.flags = static_cast<uint16_t>(argument->ifr_flags);
    }
    if (request == kEthtool && argument->ifr_data) {
        // ETHTOOL_GSET and ETHTOOL_SSET carry 44 bytes, the other requests that the models know carry 8.
        record = argument->ifr_data;
        const auto command = *reinterpret_cast<const uint32_t *>(record);
        size = command == 1 || command == 2 ? 44 : 8;
    }
    for (size_t i = 0; i < size; ++i)
        body.record[i] = static_cast<uint8_t>(record[i]);
    Exchange message{};
    message.op = static_cast<uint32_t>(Op::kInterface);
    message.request = request;
    message.out = &body;
    message.out_length = sizeof body;
    message.in = &body;
    message.in_length = sizeof body;
    const long result = exchange(message);
    if (result < 0)
        return result;
    if (!mii)
        argument->ifr_flags = static_cast<short>(body.flags);
    for (size_t i = 0; i < size; ++i)
        record[i] = static_cast<char>(body.record[i]);
    return 0;
}

long model_request(const Node &node, uint32_t request, void *argument)
{
    const IoctlForm *form = ioctl_form(node, request);
    if (!form)
        return -ENOTTY;
    Exchange message{};
    message.op = static_cast<uint32_t>(Op::kIoctl);
    message.node = node.id;
    message.request = request;
    const auto word = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(argument));
    if (form->by_value) {
        message.out = &word;
        message.out_length = sizeof word;
        return exchange(message);
    }
    if (!argument && form->size)
        return -EFAULT;
    message.out = argument;
    message.out_length = form->size;
    message.in = argument;
    message.in_length = form->size;
    return exchange(message);
}

// Reports a request that changes a file even through a descriptor for reading.
bool changes_inode(uint32_t request)
{
    return request == static_cast<uint32_t>(FS_IOC_SETFLAGS) || request == static_cast<uint32_t>(FS_IOC_FSSETXATTR) ||
           request == static_cast<uint32_t>(FS_IOC_SETVERSION);
}

bool is_open(int fd)
{
    struct statx info;
    return syscall(SYS_statx, fd, "", AT_EMPTY_PATH, STATX_TYPE, &info) == 0 || errno != EBADF;
}

// An emulator rejects an unknown request before it checks the descriptor.
long kernel_request(int fd, unsigned long request, void *argument)
{
    const long result = syscall(SYS_ioctl, fd, request, argument);
    if (result == -1 && errno == ENOSYS)
        errno = is_open(fd) ? ENOTTY : EBADF;
    return result;
}

} // namespace

WRAP(int, ioctl, int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    const auto number = static_cast<uint32_t>(request); // a negative int arrives sign-extended
    Call around("ioctl", fd);
    if (around.fails())
        return -1;
    around.about(UINT64_MAX, number, nullptr, 0);
    const Node *node = node_of(fd);
    if (node && node->kind != NodeKind::kPlain)
        return static_cast<int>(around.done(result_of(model_request(*node, number, argument))));
    if (is_interface_request(number) && !page()->network[0])
        return static_cast<int>(around.done(result_of(interface_request(number, static_cast<ifreq *>(argument)))));
    if (is_interface_request(number) && !is_in_network_of_board())
        return static_cast<int>(around.done(result_of(-EPERM)));
    if (changes_inode(number) && !may_change(fd))
        return static_cast<int>(around.done(result_of(-EROFS)));
    return static_cast<int>(around.done(kernel_request(fd, request, argument)));
}

} // namespace vboard::shim
