// Calls that take a path and read information about it.
#include "shim.h"

#include <sys/inotify.h>

#include "on_path.h"

namespace vboard::shim {

// glibc's stat structures differ between targets and time sizes, so its functions fill them from the mapped path.
#define WRAP_STAT(tag, symbol, how)                                                                                    \
    WRAP_AS(int, tag, symbol, const char *path, void *info)                                                            \
    {                                                                                                                  \
        return on_path("stat", AT_FDCWD, path, how,                                                                    \
                       [&](const char *host) { return NEXT(int(const char *, void *), tag)(host, info); });            \
    }
WRAP_STAT(stat, "stat", kFollow)
WRAP_STAT(stat64, "stat64", kFollow)
WRAP_STAT(lstat, "lstat", 0)
WRAP_STAT(lstat64, "lstat64", 0)

#define WRAP_OLD_STAT(tag, how)                                                                                        \
    WRAP_AS(int, tag, #tag, int version, const char *path, void *info)                                                 \
    {                                                                                                                  \
        return on_path("stat", AT_FDCWD, path, how, [&](const char *host) {                                            \
            return NEXT(int(int, const char *, void *), tag)(version, host, info);                                     \
        });                                                                                                            \
    }
WRAP_OLD_STAT(__xstat, kFollow)
WRAP_OLD_STAT(__xstat64, kFollow)
WRAP_OLD_STAT(__lxstat, 0)
WRAP_OLD_STAT(__lxstat64, 0)

namespace {

// Finds the file to report for a descriptor whose own inode is the folder of a node.
bool file_behind(int fd, char *host, size_t size)
{
    const Node *node = node_of(fd);
    if (!node || node->kind != NodeKind::kModel)
        return false;
    place_of(*node, kNodeFiles, host, size);
    return true;
}

} // namespace

#define WRAP_FSTATAT(tag)                                                                                              \
    WRAP_AS(int, tag, #tag, int directory, const char *path, void *info, int flags)                                    \
    {                                                                                                                  \
        using Real = int(int, const char *, void *, int);                                                              \
        char file[PATH_MAX];                                                                                           \
        if (is_empty_path(path, flags) && file_behind(directory, file, sizeof file))                                   \
            return NEXT(Real, tag)(AT_FDCWD, file, info, 0);                                                           \
        if (is_empty_path(path, flags))                                                                                \
            return NEXT(Real, tag)(directory, path, info, flags);                                                      \
        return on_path("stat", directory, path, link_rule(flags),                                                      \
                       [&](const char *host) { return NEXT(Real, tag)(AT_FDCWD, host, info, flags); });                \
    }
WRAP_FSTATAT(fstatat)
WRAP_FSTATAT(fstatat64)

#define WRAP_FSTAT(tag, of_path)                                                                                       \
    WRAP_AS(int, tag, #tag, int fd, void *info)                                                                        \
    {                                                                                                                  \
        Call around("fstat", fd);                                                                                      \
        if (around.fails())                                                                                            \
            return -1;                                                                                                 \
        char host[PATH_MAX];                                                                                           \
        if (file_behind(fd, host, sizeof host))                                                                        \
            return NEXT(int(const char *, void *), of_path)(host, info);                                               \
        return NEXT(int(int, void *), tag)(fd, info);                                                                  \
    }
WRAP_FSTAT(fstat, stat)
WRAP_FSTAT(fstat64, stat64)

WRAP(int, statx, int directory, const char *path, int flags, unsigned mask, void *info)
{
    char behind[PATH_MAX];
    if (is_empty_path(path, flags) && file_behind(directory, behind, sizeof behind))
        return static_cast<int>(syscall(SYS_statx, AT_FDCWD, behind, 0, mask, info));
    if (is_empty_path(path, flags))
        return static_cast<int>(syscall(SYS_statx, directory, path, flags, mask, info));
    return on_path("stat", directory, path, link_rule(flags),
                   [&](const char *host) { return syscall(SYS_statx, AT_FDCWD, host, flags, mask, info); });
}

WRAP(int, access, const char *path, int mode)
{
    return on_path("access", AT_FDCWD, path, kFollow,
                   [&](const char *host) { return syscall(SYS_faccessat, AT_FDCWD, host, mode); });
}

WRAP(int, euidaccess, const char *path, int mode)
{
    return on_path("access", AT_FDCWD, path, kFollow,
                   [&](const char *host) { return syscall(SYS_faccessat, AT_FDCWD, host, mode); });
}

WRAP(int, eaccess, const char *path, int mode)
{
    return on_path("access", AT_FDCWD, path, kFollow,
                   [&](const char *host) { return syscall(SYS_faccessat, AT_FDCWD, host, mode); });
}

WRAP(int, faccessat, int directory, const char *path, int mode, int flags)
{
    return on_path("access", directory, path, link_rule(flags),
                   [&](const char *host) { return syscall(SYS_faccessat, AT_FDCWD, host, mode); });
}

namespace {

// Translates a host name from the kernel to the board name that the program knows.
ssize_t wrapped_readlink(int directory, const char *path, char *buffer, size_t size)
{
    Path where;
    if (!resolve(directory, path, 0, where))
        return -1;
    Call around("readlink", where);
    if (around.fails())
        return -1;
    char target[PATH_MAX];
    const long n = syscall(SYS_readlinkat, AT_FDCWD, where.host, target, sizeof target - 1);
    if (n < 0)
        return around.done(n);
    target[n] = '\0';
    char named[PATH_MAX];
    board_name(target, named, sizeof named);
    if (const int fd = descriptor_of(where.board); fd >= 0)
        name_of_descriptor(fd, named, sizeof named);
    if (!named[0])
        copy_text(named, sizeof named, target);
    size_t length = length_of(named);
    if (length > size)
        length = size;
    for (size_t i = 0; i < length; ++i)
        buffer[i] = named[i];
    return around.done(static_cast<long>(length));
}

} // namespace

WRAP(ssize_t, readlink, const char *path, char *buffer, size_t size)
{
    return wrapped_readlink(AT_FDCWD, path, buffer, size);
}

WRAP_AS(ssize_t, readlink_chk, "__readlink_chk", const char *path, char *buffer, size_t size, size_t)
{
    return wrapped_readlink(AT_FDCWD, path, buffer, size);
}

WRAP(ssize_t, readlinkat, int directory, const char *path, char *buffer, size_t size)
{
    return wrapped_readlink(directory, path, buffer, size);
}

WRAP_AS(ssize_t, readlinkat_chk, "__readlinkat_chk", int directory, const char *path, char *buffer, size_t size, size_t)
{
    return wrapped_readlink(directory, path, buffer, size);
}

#define WRAP_STATFS(tag)                                                                                               \
    WRAP_AS(int, tag, #tag, const char *path, void *info)                                                              \
    {                                                                                                                  \
        return on_path("statfs", AT_FDCWD, path, kFollow,                                                              \
                       [&](const char *host) { return NEXT(int(const char *, void *), tag)(host, info); });            \
    }
WRAP_STATFS(statfs)
WRAP_STATFS(statfs64)
WRAP_STATFS(statvfs)
WRAP_STATFS(statvfs64)

#define WRAP_GETXATTR(tag, how)                                                                                        \
    WRAP_AS(ssize_t, tag, #tag, const char *path, const char *name, void *value, size_t size)                          \
    {                                                                                                                  \
        using Real = ssize_t(const char *, const char *, void *, size_t);                                              \
        return on_path("xattr", AT_FDCWD, path, how,                                                                   \
                       [&](const char *host) { return NEXT(Real, tag)(host, name, value, size); });                    \
    }
WRAP_GETXATTR(getxattr, kFollow)
WRAP_GETXATTR(lgetxattr, 0)

#define WRAP_LISTXATTR(tag, how)                                                                                       \
    WRAP_AS(ssize_t, tag, #tag, const char *path, char *names, size_t size)                                            \
    {                                                                                                                  \
        using Real = ssize_t(const char *, char *, size_t);                                                            \
        return on_path("xattr", AT_FDCWD, path, how,                                                                   \
                       [&](const char *host) { return NEXT(Real, tag)(host, names, size); });                          \
    }
WRAP_LISTXATTR(listxattr, kFollow)
WRAP_LISTXATTR(llistxattr, 0)

WRAP(int, chdir, const char *path)
{
    return on_path("chdir", AT_FDCWD, path, kFollow, [](const char *host) { return syscall(SYS_chdir, host); });
}

namespace {

char *working_directory(char *buffer, size_t size)
{
    char host[PATH_MAX];
    if (syscall(SYS_getcwd, host, sizeof host) < 0)
        return nullptr;
    char named[PATH_MAX];
    board_name(host, named, sizeof named);
    if (length_of(named) + 1 > size) {
        errno = ERANGE;
        return nullptr;
    }
    copy_text(buffer, size, named);
    return buffer;
}

} // namespace

WRAP(char *, getcwd, char *buffer, size_t size)
{
    if (!buffer)
        return NEXT(char *(char *, size_t), getcwd)(buffer, size);
    return working_directory(buffer, size);
}

WRAP_AS(char *, getcwd_chk, "__getcwd_chk", char *buffer, size_t size, size_t)
{
    return working_directory(buffer, size);
}

WRAP(int, inotify_add_watch, int fd, const char *path, uint32_t mask)
{
    return on_path("inotify_add_watch", AT_FDCWD, path, (mask & IN_DONT_FOLLOW) ? 0 : unsigned{kFollow},
                   [&](const char *host) { return syscall(SYS_inotify_add_watch, fd, host, mask); });
}

} // namespace vboard::shim
