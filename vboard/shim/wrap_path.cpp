// Calls that take a path: asking, changing, removing.
#include "shim.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <time.h>

namespace vboard::shim {

namespace {

unsigned link_rule(int flags)
{
    return (flags & AT_SYMLINK_NOFOLLOW) ? 0 : unsigned{kFollow};
}

bool is_empty_path(const char *path, int flags)
{
    return (flags & AT_EMPTY_PATH) && path && !path[0];
}

// One path, one fault point, one call on where it lies.
template <typename Act>
int on_path(const char *call, int directory, const char *path, unsigned how, Act act)
{
    Path where;
    if (!resolve(directory, path, how, where))
        return -1;
    Call around(call, where);
    if (around.fails())
        return -1;
    return static_cast<int>(around.done(act(where.host)));
}

template <typename Act>
int on_two_paths(const char *call, int directory1, const char *path1, unsigned how1, int directory2, const char *path2,
                 unsigned how2, Act act)
{
    Path from;
    Path to;
    if (!resolve(directory1, path1, how1, from) || !resolve(directory2, path2, how2, to))
        return -1;
    Call around(call, to);
    if (around.fails())
        return -1;
    return static_cast<int>(around.done(act(from.host, to.host)));
}

} // namespace

// --- asking ---------------------------------------------------------------------------------------------------------

// glibc's stat structures differ between targets and time sizes: its own functions fill them from the mapped path.
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

#define WRAP_FSTATAT(tag)                                                                                              \
    WRAP_AS(int, tag, #tag, int directory, const char *path, void *info, int flags)                                    \
    {                                                                                                                  \
        using Real = int(int, const char *, void *, int);                                                              \
        if (is_empty_path(path, flags))                                                                                \
            return NEXT(Real, tag)(directory, path, info, flags);                                                      \
        return on_path("stat", directory, path, link_rule(flags),                                                      \
                       [&](const char *host) { return NEXT(Real, tag)(AT_FDCWD, host, info, flags); });                \
    }
WRAP_FSTATAT(fstatat)
WRAP_FSTATAT(fstatat64)

#define WRAP_FSTAT(tag)                                                                                                \
    WRAP_AS(int, tag, #tag, int fd, void *info)                                                                        \
    {                                                                                                                  \
        Call around("fstat", fd);                                                                                      \
        return around.fails() ? -1 : NEXT(int(int, void *), tag)(fd, info);                                            \
    }
WRAP_FSTAT(fstat)
WRAP_FSTAT(fstat64)

WRAP(int, statx, int directory, const char *path, int flags, unsigned mask, void *info)
{
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

// The links of this process, by which its paths come out of the walk.
bool is_descriptor_name(const char *board)
{
    char own[48] = "/proc/";
    char digits[24];
    digits[23] = '\0';
    append(own, sizeof own, format_number(static_cast<uint64_t>(process_id()), digits + 23));
    append(own, sizeof own, "/");
    return is_below(board, "/proc/self") || is_below(board, "/proc/thread-self") || starts_with(board, own);
}

// The program sees board names, also where the kernel knows host names.
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
    if (is_descriptor_name(where.board) && starts_with(target, "socket:")) {
        int fd = 0;
        const char *digits = where.board;
        for (const char *p = where.board; *p; ++p)
            if (*p == '/')
                digits = p + 1;
        for (; *digits; ++digits)
            fd = fd * 10 + (*digits - '0');
        if (const Node *node = node_of(fd))
            copy_text(named, sizeof named, node->path);
    }
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

// --- changing -------------------------------------------------------------------------------------------------------

WRAP(int, mkdir, const char *path, mode_t mode)
{
    return on_path("mkdir", AT_FDCWD, path, kWrite,
                   [&](const char *host) { return syscall(SYS_mkdirat, AT_FDCWD, host, mode); });
}

WRAP(int, mkdirat, int directory, const char *path, mode_t mode)
{
    return on_path("mkdir", directory, path, kWrite,
                   [&](const char *host) { return syscall(SYS_mkdirat, AT_FDCWD, host, mode); });
}

WRAP(int, chmod, const char *path, mode_t mode)
{
    return on_path("chmod", AT_FDCWD, path, kWrite | kFollow,
                   [&](const char *host) { return syscall(SYS_fchmodat, AT_FDCWD, host, mode); });
}

WRAP(int, fchmodat, int directory, const char *path, mode_t mode, int flags)
{
    return on_path("chmod", directory, path, kWrite | link_rule(flags),
                   [&](const char *host) { return syscall(SYS_fchmodat, AT_FDCWD, host, mode); });
}

WRAP(int, chown, const char *path, uid_t user, gid_t group)
{
    return on_path("chown", AT_FDCWD, path, kWrite | kFollow,
                   [&](const char *host) { return syscall(SYS_fchownat, AT_FDCWD, host, user, group, 0); });
}

WRAP(int, lchown, const char *path, uid_t user, gid_t group)
{
    return on_path("chown", AT_FDCWD, path, kWrite, [&](const char *host) {
        return syscall(SYS_fchownat, AT_FDCWD, host, user, group, AT_SYMLINK_NOFOLLOW);
    });
}

WRAP(int, fchownat, int directory, const char *path, uid_t user, gid_t group, int flags)
{
    if (is_empty_path(path, flags))
        return static_cast<int>(syscall(SYS_fchownat, directory, path, user, group, flags));
    return on_path("chown", directory, path, kWrite | link_rule(flags),
                   [&](const char *host) { return syscall(SYS_fchownat, AT_FDCWD, host, user, group, flags); });
}

#define WRAP_TRUNCATE(tag, offset_type)                                                                                \
    WRAP_AS(int, tag, #tag, const char *path, offset_type length)                                                      \
    {                                                                                                                  \
        return on_path("truncate", AT_FDCWD, path, kWrite | kFollow,                                                   \
                       [&](const char *host) { return NEXT(int(const char *, offset_type), tag)(host, length); });     \
    }
WRAP_TRUNCATE(truncate, off_t)
WRAP_TRUNCATE(truncate64, int64_t)

WRAP(int, utimensat, int directory, const char *path, const timespec *times, int flags)
{
    if (!path)
        return NEXT(int(int, const char *, const timespec *, int), utimensat)(directory, path, times, flags);
    return on_path("utimens", directory, path, kWrite | link_rule(flags), [&](const char *host) {
        return NEXT(int(int, const char *, const timespec *, int), utimensat)(AT_FDCWD, host, times, flags);
    });
}

#define WRAP_UTIME(tag, how)                                                                                           \
    WRAP_AS(int, tag, #tag, const char *path, const void *times)                                                       \
    {                                                                                                                  \
        return on_path("utimens", AT_FDCWD, path, kWrite | how,                                                        \
                       [&](const char *host) { return NEXT(int(const char *, const void *), tag)(host, times); });     \
    }
WRAP_UTIME(utime, kFollow)
WRAP_UTIME(utimes, kFollow)
WRAP_UTIME(lutimes, 0)

#define WRAP_XATTR(tag, how)                                                                                           \
    WRAP_AS(int, tag, #tag, const char *path, const char *name, const void *value, size_t size, int flags)             \
    {                                                                                                                  \
        using Real = int(const char *, const char *, const void *, size_t, int);                                       \
        return on_path("xattr", AT_FDCWD, path, kWrite | how,                                                          \
                       [&](const char *host) { return NEXT(Real, tag)(host, name, value, size, flags); });             \
    }
WRAP_XATTR(setxattr, kFollow)
WRAP_XATTR(lsetxattr, 0)

#define WRAP_REMOVEXATTR(tag, how)                                                                                     \
    WRAP_AS(int, tag, #tag, const char *path, const char *name)                                                        \
    {                                                                                                                  \
        return on_path("xattr", AT_FDCWD, path, kWrite | how,                                                          \
                       [&](const char *host) { return NEXT(int(const char *, const char *), tag)(host, name); });      \
    }
WRAP_REMOVEXATTR(removexattr, kFollow)
WRAP_REMOVEXATTR(lremovexattr, 0)

#define WRAP_MKFIFO(tag)                                                                                               \
    WRAP_AS(int, tag, #tag, const char *path, mode_t mode)                                                             \
    {                                                                                                                  \
        return on_path("mkfifo", AT_FDCWD, path, kWrite,                                                               \
                       [&](const char *host) { return NEXT(int(const char *, mode_t), tag)(host, mode); });            \
    }
WRAP_MKFIFO(mkfifo)

WRAP(int, mkfifoat, int directory, const char *path, mode_t mode)
{
    return on_path("mkfifo", directory, path, kWrite, [&](const char *host) {
        return NEXT(int(int, const char *, mode_t), mkfifoat)(AT_FDCWD, host, mode);
    });
}

// --- names ----------------------------------------------------------------------------------------------------------

WRAP(int, unlink, const char *path)
{
    return on_path("unlink", AT_FDCWD, path, kRemove,
                   [](const char *host) { return syscall(SYS_unlinkat, AT_FDCWD, host, 0); });
}

WRAP(int, rmdir, const char *path)
{
    return on_path("unlink", AT_FDCWD, path, kRemove,
                   [](const char *host) { return syscall(SYS_unlinkat, AT_FDCWD, host, AT_REMOVEDIR); });
}

WRAP(int, unlinkat, int directory, const char *path, int flags)
{
    return on_path("unlink", directory, path, kRemove,
                   [&](const char *host) { return syscall(SYS_unlinkat, AT_FDCWD, host, flags); });
}

WRAP(int, remove, const char *path)
{
    return on_path("unlink", AT_FDCWD, path, kRemove, [](const char *host) {
        const long n = syscall(SYS_unlinkat, AT_FDCWD, host, 0);
        return n != 0 && errno == EISDIR ? syscall(SYS_unlinkat, AT_FDCWD, host, AT_REMOVEDIR) : n;
    });
}

namespace {

int wrapped_rename(int directory1, const char *from, int directory2, const char *to, unsigned flags)
{
    return on_two_paths("rename", directory1, from, kRemove, directory2, to, kWrite,
                        [&](const char *host1, const char *host2) {
                            return syscall(SYS_renameat2, AT_FDCWD, host1, AT_FDCWD, host2, flags);
                        });
}

} // namespace

WRAP(int, rename, const char *from, const char *to)
{
    return wrapped_rename(AT_FDCWD, from, AT_FDCWD, to, 0);
}

WRAP(int, renameat, int directory1, const char *from, int directory2, const char *to)
{
    return wrapped_rename(directory1, from, directory2, to, 0);
}

WRAP(int, renameat2, int directory1, const char *from, int directory2, const char *to, unsigned flags)
{
    return wrapped_rename(directory1, from, directory2, to, flags);
}

WRAP(int, linkat, int directory1, const char *from, int directory2, const char *to, int flags)
{
    if (is_empty_path(from, flags))
        return on_path("link", directory2, to, kWrite,
                       [&](const char *host) { return syscall(SYS_linkat, directory1, "", AT_FDCWD, host, flags); });
    // A second name for a host file would be a way to change it: the board's copy is linked instead.
    return on_two_paths("link", directory1, from, kWrite | ((flags & AT_SYMLINK_FOLLOW) ? unsigned{kFollow} : 0),
                        directory2, to, kWrite, [&](const char *host1, const char *host2) {
                            return syscall(SYS_linkat, AT_FDCWD, host1, AT_FDCWD, host2, flags);
                        });
}

WRAP(int, link, const char *from, const char *to)
{
    return on_two_paths("link", AT_FDCWD, from, kWrite, AT_FDCWD, to, kWrite, [](const char *host1, const char *host2) {
        return syscall(SYS_linkat, AT_FDCWD, host1, AT_FDCWD, host2, 0);
    });
}

WRAP(int, symlink, const char *target, const char *path)
{
    return on_path("symlink", AT_FDCWD, path, kWrite,
                   [&](const char *host) { return syscall(SYS_symlinkat, target, AT_FDCWD, host); });
}

WRAP(int, symlinkat, const char *target, int directory, const char *path)
{
    return on_path("symlink", directory, path, kWrite,
                   [&](const char *host) { return syscall(SYS_symlinkat, target, AT_FDCWD, host); });
}

} // namespace vboard::shim
