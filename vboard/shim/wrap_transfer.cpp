// Reading, writing, requests and closing.
#include "shim.h"

#include <fcntl.h>
#include <net/if.h>
#include <stdarg.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "page/protocol.h"

namespace vboard::shim {

namespace {

constexpr uint64_t kAtPosition = UINT64_MAX;

long result_of(long value)
{
    if (value >= 0)
        return value;
    errno = static_cast<int>(-value);
    return -1;
}

long raw_pread(int fd, void *buffer, size_t length, uint64_t offset)
{
#if defined(__arm__)
    return syscall(SYS_pread64, fd, buffer, length, 0, static_cast<uint32_t>(offset),
                   static_cast<uint32_t>(offset >> 32));
#else
    return syscall(SYS_pread64, fd, buffer, length, offset);
#endif
}

long raw_pwrite(int fd, const void *buffer, size_t length, uint64_t offset)
{
#if defined(__arm__)
    return syscall(SYS_pwrite64, fd, buffer, length, 0, static_cast<uint32_t>(offset),
                   static_cast<uint32_t>(offset >> 32));
#else
    return syscall(SYS_pwrite64, fd, buffer, length, offset);
#endif
}

int64_t raw_seek(int fd, int64_t offset, int whence)
{
#if defined(__arm__)
    int64_t result = -1;
    const long failed =
        syscall(SYS__llseek, fd, static_cast<uint32_t>(offset >> 32), static_cast<uint32_t>(offset), &result, whence);
    return failed ? -1 : result;
#else
    return syscall(SYS_lseek, fd, offset, whence);
#endif
}

// The notification is taken before the text is asked for: what changes in between notifies again.
long notify_read(const Node &node, int fd, uint64_t offset, void *buffer, size_t length)
{
    take_signal(fd);
    Exchange message{};
    message.op = static_cast<uint32_t>(Op::kNotifyRead);
    message.node = node.id;
    message.flags = serial_of(fd);
    message.offset = offset;
    message.in = buffer;
    message.in_length = static_cast<uint32_t>(length < kMaxPayload ? length : kMaxPayload);
    return exchange(message);
}

bool served(const Node *node)
{
    return node && node->kind == NodeKind::kModel;
}

long read_at_position(int fd, const Node *node, void *buffer, size_t length)
{
    if (node && node->kind == NodeKind::kNotify)
        return result_of(notify_read(*node, fd, kAtPosition, buffer, length));
    if (!served(node))
        return syscall(SYS_read, fd, buffer, length);
    const int64_t at = raw_seek(fd, 0, SEEK_CUR);
    const long n = node_read(*node, static_cast<uint64_t>(at), buffer, length);
    if (n > 0)
        raw_seek(fd, at + n, SEEK_SET);
    return result_of(n);
}

long read_at(int fd, const Node *node, void *buffer, size_t length, uint64_t offset)
{
    if (node && node->kind == NodeKind::kNotify)
        return result_of(notify_read(*node, fd, offset, buffer, length));
    if (!served(node))
        return raw_pread(fd, buffer, length, offset);
    return result_of(node_read(*node, offset, buffer, length));
}

bool takes_writes(const Node *node)
{
    return node && (node->kind == NodeKind::kModel || node->kind == NodeKind::kAttribute ||
                    node->kind == NodeKind::kNotify || node->kind == NodeKind::kChannel);
}

bool is_writable(int fd)
{
    const long flags = syscall(SYS_fcntl, fd, F_GETFL);
    return flags >= 0 && ((flags & O_ACCMODE) != O_RDONLY);
}

long write_at_position(int fd, const Node *node, const void *buffer, size_t length)
{
    if (!takes_writes(node))
        return syscall(SYS_write, fd, buffer, length);
    if (!is_writable(fd)) {
        errno = EBADF;
        return -1;
    }
    const int64_t at = node->kind == NodeKind::kModel ? raw_seek(fd, 0, SEEK_CUR) : 0;
    const long n = node_write(*node, static_cast<uint64_t>(at), buffer, length);
    if (n > 0 && node->kind == NodeKind::kModel)
        raw_seek(fd, at + n, SEEK_SET);
    return result_of(n);
}

long write_at(int fd, const Node *node, const void *buffer, size_t length, uint64_t offset)
{
    if (!takes_writes(node))
        return raw_pwrite(fd, buffer, length, offset);
    if (!is_writable(fd)) {
        errno = EBADF;
        return -1;
    }
    return result_of(node_write(*node, offset, buffer, length));
}

ssize_t wrapped_read(int fd, void *buffer, size_t length)
{
    Call around("read", fd);
    if (around.fails())
        return -1;
    if (around.limits(&length) && length == 0)
        return around.done(0);
    const long n = read_at_position(fd, node_of(fd), buffer, length);
    around.about(UINT64_MAX, UINT64_MAX, buffer, n > 0 ? static_cast<size_t>(n) : 0);
    return around.done(n);
}

ssize_t wrapped_write(int fd, const void *buffer, size_t length)
{
    Call around("write", fd);
    if (around.fails())
        return -1;
    if (around.limits(&length) && length == 0)
        return around.done(0);
    around.about(UINT64_MAX, UINT64_MAX, buffer, length);
    return around.done(write_at_position(fd, node_of(fd), buffer, length));
}

ssize_t wrapped_pread(int fd, void *buffer, size_t length, int64_t offset)
{
    Call around("pread", fd);
    if (around.fails())
        return -1;
    if (around.limits(&length) && length == 0)
        return around.done(0);
    const long n = read_at(fd, node_of(fd), buffer, length, static_cast<uint64_t>(offset));
    around.about(static_cast<uint64_t>(offset), UINT64_MAX, buffer, n > 0 ? static_cast<size_t>(n) : 0);
    return around.done(n);
}

ssize_t wrapped_pwrite(int fd, const void *buffer, size_t length, int64_t offset)
{
    Call around("pwrite", fd);
    if (around.fails())
        return -1;
    if (around.limits(&length) && length == 0)
        return around.done(0);
    around.about(static_cast<uint64_t>(offset), UINT64_MAX, buffer, length);
    return around.done(write_at(fd, node_of(fd), buffer, length, static_cast<uint64_t>(offset)));
}

} // namespace

long node_read(const Node &node, uint64_t offset, void *buffer, size_t length)
{
    size_t done = 0;
    while (done < length) {
        Exchange message{};
        message.op = static_cast<uint32_t>(Op::kRead);
        message.node = node.id;
        message.offset = offset + done;
        message.in = static_cast<char *>(buffer) + done;
        message.in_length = static_cast<uint32_t>(length - done < kMaxPayload ? length - done : kMaxPayload);
        const long n = exchange(message);
        if (n < 0)
            return done ? static_cast<long>(done) : n;
        done += static_cast<size_t>(n);
        if (static_cast<uint32_t>(n) < message.in_length)
            break;
    }
    return static_cast<long>(done);
}

long node_write(const Node &node, uint64_t offset, const void *buffer, size_t length)
{
    size_t done = 0;
    do {
        Exchange message{};
        message.op = static_cast<uint32_t>(Op::kWrite);
        message.node = node.id;
        message.offset = offset + done;
        message.out = static_cast<const char *>(buffer) + done;
        message.out_length = static_cast<uint32_t>(length - done < kMaxPayload ? length - done : kMaxPayload);
        const long n = exchange(message);
        if (n < 0)
            return done ? static_cast<long>(done) : n;
        done += static_cast<size_t>(n);
        if (static_cast<uint32_t>(n) < message.out_length)
            break;
    } while (done < length);
    return static_cast<long>(done);
}

WRAP(ssize_t, read, int fd, void *buffer, size_t length)
{
    return wrapped_read(fd, buffer, length);
}

WRAP_AS(ssize_t, read_chk, "__read_chk", int fd, void *buffer, size_t length, size_t)
{
    return wrapped_read(fd, buffer, length);
}

WRAP(ssize_t, write, int fd, const void *buffer, size_t length)
{
    return wrapped_write(fd, buffer, length);
}

WRAP(ssize_t, pread, int fd, void *buffer, size_t length, off_t offset)
{
    return wrapped_pread(fd, buffer, length, offset);
}

WRAP(ssize_t, pread64, int fd, void *buffer, size_t length, int64_t offset)
{
    return wrapped_pread(fd, buffer, length, offset);
}

WRAP_AS(ssize_t, pread_chk, "__pread_chk", int fd, void *buffer, size_t length, off_t offset, size_t)
{
    return wrapped_pread(fd, buffer, length, offset);
}

WRAP_AS(ssize_t, pread64_chk, "__pread64_chk", int fd, void *buffer, size_t length, int64_t offset, size_t)
{
    return wrapped_pread(fd, buffer, length, offset);
}

WRAP(ssize_t, pwrite, int fd, const void *buffer, size_t length, off_t offset)
{
    return wrapped_pwrite(fd, buffer, length, offset);
}

WRAP(ssize_t, pwrite64, int fd, const void *buffer, size_t length, int64_t offset)
{
    return wrapped_pwrite(fd, buffer, length, offset);
}

WRAP(ssize_t, readv, int fd, const iovec *parts, int count)
{
    const Node *node = node_of(fd);
    if (!served(node))
        return syscall(SYS_readv, fd, parts, count);
    return count > 0 ? wrapped_read(fd, parts[0].iov_base, parts[0].iov_len) : 0;
}

WRAP(ssize_t, writev, int fd, const iovec *parts, int count)
{
    const Node *node = node_of(fd);
    if (!takes_writes(node))
        return syscall(SYS_writev, fd, parts, count);
    ssize_t total = 0;
    for (int i = 0; i < count; ++i) {
        const ssize_t n = wrapped_write(fd, parts[i].iov_base, parts[i].iov_len);
        if (n < 0)
            return total ? total : n;
        total += n;
    }
    return total;
}

namespace {

int64_t wrapped_seek(int fd, int64_t offset, int whence)
{
    const Node *node = node_of(fd);
    if (!node || node->kind != NodeKind::kNotify)
        return raw_seek(fd, offset, whence);
    Exchange message{};
    message.op = static_cast<uint32_t>(Op::kNotifySeek);
    message.node = node->id;
    message.flags = serial_of(fd);
    message.offset = static_cast<uint64_t>(offset);
    return result_of(exchange(message));
}

} // namespace

WRAP(off_t, lseek, int fd, off_t offset, int whence)
{
    Call around("lseek", fd);
    return around.fails() ? -1 : static_cast<off_t>(around.done(static_cast<long>(wrapped_seek(fd, offset, whence))));
}

WRAP(int64_t, lseek64, int fd, int64_t offset, int whence)
{
    Call around("lseek", fd);
    if (around.fails())
        return -1;
    const int64_t at = wrapped_seek(fd, offset, whence);
    around.done(at < 0 ? -1 : 0);
    return at;
}

WRAP(int, close, int fd)
{
    if (is_own_descriptor(fd)) {
        errno = EBADF;
        return -1;
    }
    Call around("close", fd);
    if (around.fails()) {
        KeepErrno keep;
        syscall(SYS_close, fd);
        return -1;
    }
    return static_cast<int>(around.done(syscall(SYS_close, fd)));
}

WRAP(int, flock, int fd, int operation)
{
    Call around("flock", fd);
    if (around.fails())
        return -1;
    return static_cast<int>(around.done(syscall(SYS_flock, fd, operation)));
}

namespace {

void *wrapped_mmap(void *address, size_t length, int protection, int flags, int fd, int64_t offset)
{
    // Anonymous memory is the allocator's business: neither watched nor failed.
    if (flags & MAP_ANONYMOUS)
#ifdef SYS_mmap2
        return reinterpret_cast<void *>(syscall(SYS_mmap2, address, length, protection, flags, fd, offset / 4096));
#else
        return reinterpret_cast<void *>(syscall(SYS_mmap, address, length, protection, flags, fd, offset));
#endif
    Call around("mmap", fd);
    if (around.fails())
        return MAP_FAILED;
    around.about(static_cast<uint64_t>(offset), UINT64_MAX, nullptr, length);
#ifdef SYS_mmap2
    const long at = syscall(SYS_mmap2, address, length, protection, flags, fd, offset / 4096);
#else
    const long at = syscall(SYS_mmap, address, length, protection, flags, fd, offset);
#endif
    around.done(at == -1 ? -1 : 0);
    return reinterpret_cast<void *>(at);
}

} // namespace

WRAP(void *, mmap, void *address, size_t length, int protection, int flags, int fd, off_t offset)
{
    return wrapped_mmap(address, length, protection, flags, fd, offset);
}

WRAP(void *, mmap64, void *address, size_t length, int protection, int flags, int fd, int64_t offset)
{
    return wrapped_mmap(address, length, protection, flags, fd, offset);
}

namespace {

// Interface requests carry a name and a record; the host's interfaces are never touched.
bool is_interface_request(uint32_t request)
{
    return request >= 0x8910 && request <= 0x89ff;
}

long interface_request(uint32_t request, ifreq *argument)
{
    constexpr uint32_t kEthtool = 0x8946;
    InterfaceRequest body{};
    copy_text(body.name, sizeof body.name, argument->ifr_name);
    body.flags = static_cast<uint16_t>(argument->ifr_flags);
    size_t record = 0;
    if (request == kEthtool && argument->ifr_data) {
        // ETHTOOL_GSET and ETHTOOL_SSET carry 44 bytes, the rest that the models know carry 8.
        const auto command = *reinterpret_cast<const uint32_t *>(argument->ifr_data);
        record = command == 1 || command == 2 ? 44 : 8;
        for (size_t i = 0; i < record; ++i)
            body.record[i] = static_cast<uint8_t>(argument->ifr_data[i]);
    }
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
    argument->ifr_flags = static_cast<short>(body.flags);
    for (size_t i = 0; i < record; ++i)
        argument->ifr_data[i] = static_cast<char>(body.record[i]);
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
    if (is_interface_request(number) && !page()->real_net)
        return static_cast<int>(around.done(result_of(interface_request(number, static_cast<ifreq *>(argument)))));
    return static_cast<int>(around.done(syscall(SYS_ioctl, fd, request, argument)));
}

// Calls on descriptors that only need a place for faults.
#define WRAP_DESCRIPTOR(name, number, parameters, ...)                                                                 \
    WRAP(int, name, parameters)                                                                                        \
    {                                                                                                                  \
        Call around(#name, fd);                                                                                        \
        return around.fails() ? -1 : static_cast<int>(around.done(syscall(number, __VA_ARGS__)));                      \
    }
#define PARAMETERS(...) __VA_ARGS__

WRAP_DESCRIPTOR(fsync, SYS_fsync, int fd, fd)
WRAP_DESCRIPTOR(fdatasync, SYS_fdatasync, int fd, fd)
WRAP_DESCRIPTOR(fchmod, SYS_fchmod, PARAMETERS(int fd, mode_t mode), fd, mode)
WRAP_DESCRIPTOR(fchown, SYS_fchown, PARAMETERS(int fd, uid_t user, gid_t group), fd, user, group)

namespace {

int wrapped_truncate(int fd, int64_t length)
{
    Call around("ftruncate", fd);
    if (around.fails())
        return -1;
#if defined(__arm__)
    const long result =
        syscall(SYS_ftruncate64, fd, 0, static_cast<uint32_t>(length), static_cast<uint32_t>(length >> 32));
#else
    const long result = syscall(SYS_ftruncate, fd, length);
#endif
    return static_cast<int>(around.done(result));
}

} // namespace

WRAP(int, ftruncate, int fd, off_t length)
{
    return wrapped_truncate(fd, length);
}

WRAP(int, ftruncate64, int fd, int64_t length)
{
    return wrapped_truncate(fd, length);
}

WRAP(ssize_t, splice, int from, int64_t *from_offset, int to, int64_t *to_offset, size_t length, unsigned flags)
{
    Call around("splice", from);
    if (around.fails())
        return -1;
    return around.done(syscall(SYS_splice, from, from_offset, to, to_offset, length, flags));
}

} // namespace vboard::shim
