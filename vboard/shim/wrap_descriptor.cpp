// Closing, locking, mapping and other calls on descriptors that do not transfer bytes of a device.
#include "shim.h"

#include <fcntl.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <time.h>

namespace vboard::shim {

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

long raw_mmap(void *address, size_t length, int protection, int flags, int fd, int64_t offset)
{
#ifdef SYS_mmap2
    return syscall(SYS_mmap2, address, length, protection, flags, fd, offset / 4096);
#else
    return syscall(SYS_mmap, address, length, protection, flags, fd, offset);
#endif
}

// Maps the file of a mapped node. Other registers exist in the model only.
long map_node(const Node &node, void *address, size_t length, int protection, int flags, int fd, int64_t offset)
{
    if (!node.is_mapped)
        return refuse_on_node("mmap", node, ENODEV);
    char path[PATH_MAX];
    place_of(node, kNodeFiles, path, sizeof path);
    const long file = syscall(SYS_openat, AT_FDCWD, path, access_mode(&node, fd) | O_CLOEXEC | O_LARGEFILE, 0);
    if (file < 0)
        return -1;
    const long at = raw_mmap(address, length, protection, flags, static_cast<int>(file), offset);
    KeepErrno keep;
    syscall(SYS_close, file);
    return at;
}

void *wrapped_mmap(void *address, size_t length, int protection, int flags, int fd, int64_t offset)
{
    // Anonymous memory belongs to the allocator and is neither watched nor failed.
    if (flags & MAP_ANONYMOUS)
        return reinterpret_cast<void *>(raw_mmap(address, length, protection, flags, fd, offset));
    Call around("mmap", fd);
    if (around.fails())
        return MAP_FAILED;
    around.about(static_cast<uint64_t>(offset), UINT64_MAX, nullptr, length);
    const Node *node = node_of(fd);
    const long at = node && node->kind == NodeKind::kModel
                        ? map_node(*node, address, length, protection, flags, fd, offset)
                        : raw_mmap(address, length, protection, flags, fd, offset);
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

// Wraps a call on a descriptor that only needs a place for faults.
#define WRAP_DESCRIPTOR(name, number, parameters, ...)                                                                 \
    WRAP(int, name, parameters)                                                                                        \
    {                                                                                                                  \
        Call around(#name, fd);                                                                                        \
        return around.fails() ? -1 : static_cast<int>(around.done(syscall(number, __VA_ARGS__)));                      \
    }
#define PARAMETERS(...) __VA_ARGS__

WRAP_DESCRIPTOR(fsync, SYS_fsync, int fd, fd)
WRAP_DESCRIPTOR(fdatasync, SYS_fdatasync, int fd, fd)

// Wraps a call that changes a file's properties even through a descriptor for reading.
#define WRAP_PROPERTY(name, call, number, parameters, ...)                                                             \
    WRAP(int, name, parameters)                                                                                        \
    {                                                                                                                  \
        Call around(call, fd);                                                                                         \
        if (around.fails())                                                                                            \
            return -1;                                                                                                 \
        return static_cast<int>(around.done(may_change(fd) ? syscall(number, __VA_ARGS__) : result_of(-EROFS)));       \
    }

WRAP_PROPERTY(fchmod, "fchmod", SYS_fchmod, PARAMETERS(int fd, mode_t mode), fd, mode)
WRAP_PROPERTY(fchown, "fchown", SYS_fchown, PARAMETERS(int fd, uid_t user, gid_t group), fd, user, group)
WRAP_PROPERTY(futimens, "utimens", SYS_utimensat, PARAMETERS(int fd, const void *times), fd, nullptr, times, 0)
WRAP_PROPERTY(fsetxattr, "xattr", SYS_fsetxattr,
              PARAMETERS(int fd, const char *name, const void *value, size_t size, int flags), fd, name, value, size,
              flags)
WRAP_PROPERTY(fremovexattr, "xattr", SYS_fremovexattr, PARAMETERS(int fd, const char *name), fd, name)

WRAP(int, futimes, int fd, const timeval *times)
{
    timespec exact[2];
    for (int i = 0; times && i < 2; ++i)
        exact[i] = {times[i].tv_sec, static_cast<long>(times[i].tv_usec) * 1000};
    return shim_futimens(fd, times ? exact : nullptr);
}

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

namespace {

// Returns the flags that the program gave to open, for a descriptor that keeps its access mode elsewhere.
int flags_of_program(int fd, int flags)
{
    const Node *node = node_of(fd);
    if (flags < 0 || !node || (node->kind != NodeKind::kModel && node->kind != NodeKind::kAttribute))
        return flags;
    return (flags & ~(O_ACCMODE | O_SYNC | O_DIRECTORY)) | access_mode(node, fd);
}

int wrapped_fcntl(int fd, int command, void *argument)
{
    switch (command) {
    case F_GETFL: return flags_of_program(fd, static_cast<int>(syscall(SYS_fcntl, fd, F_GETFL)));
    case F_SETFL:
    case F_GETFD:
    case F_SETFD:
    case F_DUPFD:
    case F_DUPFD_CLOEXEC: // also between fork and exec, where dlsym could wait for a lock
        return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
    default: return NEXT(int(int, int, void *), fcntl)(fd, command, argument);
    }
}

} // namespace

#define WRAP_FCNTL(name)                                                                                               \
    WRAP(int, name, int fd, int command, ...)                                                                          \
    {                                                                                                                  \
        va_list arguments;                                                                                             \
        va_start(arguments, command);                                                                                  \
        void *argument = va_arg(arguments, void *);                                                                    \
        va_end(arguments);                                                                                             \
        return wrapped_fcntl(fd, command, argument);                                                                   \
    }
WRAP_FCNTL(fcntl)
WRAP_FCNTL(fcntl64)

} // namespace vboard::shim
