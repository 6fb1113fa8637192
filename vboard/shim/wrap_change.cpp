// Calls that change the file at a path, or its names.
#include "shim.h"

#include <stdio.h>
#include <sys/stat.h>
#include <time.h>

#include "on_path.h"

namespace vboard::shim {

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
        return static_cast<int>(may_change(directory) ? syscall(SYS_fchownat, directory, path, user, group, flags)
                                                      : result_of(-EROFS));
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
    if (!path || is_empty_path(path, flags))
        return static_cast<int>(may_change(directory) ? syscall(SYS_utimensat, directory, path, times, flags)
                                                      : result_of(-EROFS));
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

WRAP(int, futimesat, int directory, const char *path, const timeval *times)
{
    return on_path("utimens", directory, path, kWrite | kFollow,
                   [&](const char *host) { return NEXT(int(const char *, const timeval *), utimes)(host, times); });
}

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
        return on_path("link", directory2, to, kWrite, [&](const char *host) {
            return may_change(directory1) ? syscall(SYS_linkat, directory1, "", AT_FDCWD, host, flags)
                                          : result_of(-EROFS);
        });
    // A second name for a host file could be used to change it, so the board's copy is linked instead.
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
