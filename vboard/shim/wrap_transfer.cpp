// Reading, writing and seeking.
#include "shim.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include "page/protocol.h"

namespace vboard::shim {

namespace {

constexpr uint64_t kAtPosition = UINT64_MAX;

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

// Clears the notification before it requests the text, so that a change in between notifies again.
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

// Reports whether the program opened the node for this, otherwise fails with EBADF.
bool allows(const Node *node, int fd, int refused_mode)
{
    if (access_mode(node, fd) != refused_mode)
        return true;
    errno = EBADF;
    return false;
}

// A device that only signals events has nothing to read. Its socket holds marks of the virtual board.
bool has_no_bytes(const Node *node, const char *call)
{
    return node && node->kind == NodeKind::kSignal && refuse_on_node(call, *node, EINVAL) != 0;
}

long read_at_position(int fd, const Node *node, void *buffer, size_t length)
{
    if (node && node->kind == NodeKind::kNotify)
        return result_of(notify_read(*node, fd, kAtPosition, buffer, length));
    if (has_no_bytes(node, "read"))
        return -1;
    if (!served(node))
        return syscall(SYS_read, fd, buffer, length);
    if (!allows(node, fd, O_WRONLY))
        return -1;
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
    if (!allows(node, fd, O_WRONLY))
        return -1;
    return result_of(node_read(*node, offset, buffer, length));
}

bool takes_writes(const Node *node)
{
    return node && (node->kind == NodeKind::kModel || node->kind == NodeKind::kAttribute ||
                    node->kind == NodeKind::kNotify || node->kind == NodeKind::kChannel);
}

long write_at_position(int fd, const Node *node, const void *buffer, size_t length)
{
    if (has_no_bytes(node, "write"))
        return -1;
    if (!takes_writes(node))
        return syscall(SYS_write, fd, buffer, length);
    if (!allows(node, fd, O_RDONLY))
        return -1;
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
    if (!allows(node, fd, O_RDONLY))
        return -1;
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

namespace {

// A driver without vector operations gets one transfer for each part, up to the first that moves less.
template <typename Transfer>
ssize_t in_parts(const iovec *parts, int count, Transfer transfer)
{
    if (count < 0 || count > IOV_MAX) {
        errno = EINVAL;
        return -1;
    }
    ssize_t total = 0;
    for (int i = 0; i < count; ++i) {
        if (parts[i].iov_len == 0)
            continue;
        const ssize_t n = transfer(parts[i], total);
        if (n < 0)
            return total ? total : n;
        total += n;
        if (static_cast<size_t>(n) < parts[i].iov_len)
            break;
    }
    return total;
}

bool moves_in_parts(const Node *node)
{
    return node && node->kind != NodeKind::kPlain;
}

ssize_t read_parts(int fd, const iovec *parts, int count)
{
    if (!moves_in_parts(node_of(fd)))
        return syscall(SYS_readv, fd, parts, count);
    return in_parts(parts, count,
                    [=](const iovec &part, ssize_t) { return wrapped_read(fd, part.iov_base, part.iov_len); });
}

ssize_t write_parts(int fd, const iovec *parts, int count)
{
    if (!moves_in_parts(node_of(fd)))
        return syscall(SYS_writev, fd, parts, count);
    return in_parts(parts, count,
                    [=](const iovec &part, ssize_t) { return wrapped_write(fd, part.iov_base, part.iov_len); });
}

// The kernel takes an offset in two words, of which a 64-bit machine reads the first alone.
constexpr long low(int64_t offset)
{
    return static_cast<long>(offset);
}

constexpr long high(int64_t offset)
{
    return static_cast<long>(static_cast<uint64_t>(offset) >> 32);
}

ssize_t read_parts_at(int fd, const iovec *parts, int count, int64_t offset)
{
    if (!moves_in_parts(node_of(fd)))
        return syscall(SYS_preadv, fd, parts, count, low(offset), high(offset));
    return in_parts(parts, count, [=](const iovec &part, ssize_t done) {
        return wrapped_pread(fd, part.iov_base, part.iov_len, offset + done);
    });
}

ssize_t write_parts_at(int fd, const iovec *parts, int count, int64_t offset)
{
    if (!moves_in_parts(node_of(fd)))
        return syscall(SYS_pwritev, fd, parts, count, low(offset), high(offset));
    return in_parts(parts, count, [=](const iovec &part, ssize_t done) {
        return wrapped_pwrite(fd, part.iov_base, part.iov_len, offset + done);
    });
}

// Flags ask for properties of a file system, which a node refuses like a driver.
template <typename AtPosition, typename At>
ssize_t with_flags(long number, int fd, const iovec *parts, int count, int64_t offset, int flags,
                   AtPosition at_position, At at)
{
    if (!moves_in_parts(node_of(fd)))
        return syscall(number, fd, parts, count, low(offset), high(offset), flags);
    if (flags) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return offset == -1 ? at_position(fd, parts, count) : at(fd, parts, count, offset);
}

} // namespace

WRAP(ssize_t, readv, int fd, const iovec *parts, int count)
{
    return read_parts(fd, parts, count);
}

WRAP(ssize_t, writev, int fd, const iovec *parts, int count)
{
    return write_parts(fd, parts, count);
}

#define WRAP_VECTOR_AT(name, offset_type, act)                                                                         \
    WRAP(ssize_t, name, int fd, const iovec *parts, int count, offset_type offset)                                     \
    {                                                                                                                  \
        return act(fd, parts, count, offset);                                                                          \
    }
WRAP_VECTOR_AT(preadv, off_t, read_parts_at)
WRAP_VECTOR_AT(preadv64, int64_t, read_parts_at)
WRAP_VECTOR_AT(pwritev, off_t, write_parts_at)
WRAP_VECTOR_AT(pwritev64, int64_t, write_parts_at)

#define WRAP_VECTOR_2(name, offset_type, number, act, act_at)                                                          \
    WRAP(ssize_t, name, int fd, const iovec *parts, int count, offset_type offset, int flags)                          \
    {                                                                                                                  \
        return with_flags(number, fd, parts, count, offset, flags, act, act_at);                                       \
    }
WRAP_VECTOR_2(preadv2, off_t, SYS_preadv2, read_parts, read_parts_at)
WRAP_VECTOR_2(preadv64v2, int64_t, SYS_preadv2, read_parts, read_parts_at)
WRAP_VECTOR_2(pwritev2, off_t, SYS_pwritev2, write_parts, write_parts_at)
WRAP_VECTOR_2(pwritev64v2, int64_t, SYS_pwritev2, write_parts, write_parts_at)

namespace {

int64_t size_of(const Node &node)
{
    char path[PATH_MAX];
    place_of(node, kNodeFiles, path, sizeof path);
    struct statx info {};
    syscall(SYS_statx, AT_FDCWD, path, 0, STATX_SIZE, &info);
    return static_cast<int64_t>(info.stx_size);
}

int64_t wrapped_seek(int fd, int64_t offset, int whence)
{
    const Node *node = node_of(fd);
    if (served(node) && whence == SEEK_END)
        return raw_seek(fd, size_of(*node) + offset, SEEK_SET);
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

} // namespace vboard::shim
