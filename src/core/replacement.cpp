#include "core/replacement.h"

#include <cerrno>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/descriptor_link.h"
#include "core/directory.h"
#include "core/log.h"

namespace ddal::core {

namespace {

constexpr mode_t kMode = 0600;
constexpr int kFlags = O_RDWR | O_CLOEXEC;

bool lock_at_once(int fd)
{
    int result;
    do
        result = flock(fd, LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

bool same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool has_name(int fd, int directory, const char *name)
{
    struct stat opened;
    struct stat named;
    return fstat(fd, &opened) == 0 && fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           same_file(opened, named);
}

UniqueFd create_anonymous(int directory)
{
    UniqueFd fd{openat(directory, ".", kFlags | O_TMPFILE, kMode)};
    if (!fd && errno == EISDIR) // the kernel does not know O_TMPFILE
        errno = ENOSYS;
    if (fd && !lock_at_once(fd.get()))
        fd.reset();
    return fd;
}

UniqueFd create_named(int directory, FreshName &temporary)
{
    UniqueFd fd;
    temporary.take([&](const char *name) {
        fd.reset(openat(directory, name, kFlags | O_CREAT | O_EXCL, kMode));
        if (!fd)
            return false;
        errno = EEXIST; // another writer took the file for an abandoned one before it was locked, and removed it
        if (lock_at_once(fd.get()) && has_name(fd.get(), directory, name))
            return true;
        const int error = errno == EWOULDBLOCK || errno == ENOENT ? EEXIST : errno;
        unlinkat(directory, name, 0);
        fd.reset();
        errno = error;
        return false;
    });
    return fd;
}

bool link_to(int fd, int directory, const char *name)
{
    if (linkat(fd, "", directory, name, AT_EMPTY_PATH) == 0)
        return true;
    if (errno != ENOENT && errno != EPERM)
        return false;
    // Linking by descriptor requires a privilege; linking its entry under /proc does not.
    return linkat(AT_FDCWD, DescriptorLink{fd}.path(), directory, name, AT_SYMLINK_FOLLOW) == 0;
}

void remove_if_abandoned(int directory, const char *name, int locked)
{
    const UniqueFd fd{openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    struct stat found;
    if (!fd || fstat(fd.get(), &found) != 0 || !S_ISREG(found.st_mode))
        return;
    // A writer that was killed between putting its file in place and removing the first name leaves a second name of
    // the target. The caller holds the lock of the target.
    struct stat target;
    const bool is_target = locked >= 0 && fstat(locked, &target) == 0 && same_file(target, found);
    if ((is_target || lock_at_once(fd.get())) && has_name(fd.get(), directory, name))
        unlinkat(directory, name, 0);
}

} // namespace

UniqueFd create_replacement(int directory, FreshName &temporary)
{
    UniqueFd fd = create_anonymous(directory);
    if (fd || (errno != ENOSYS && errno != EOPNOTSUPP))
        return fd;
    return create_named(directory, temporary);
}

int put_in_place(int fd, int directory, const char *name)
{
    errno = 0;
    FreshName linked;
    if (!linked.take([&](const char *fresh) { return link_to(fd, directory, fresh); }))
        return minus_errno();
    if (renameat(directory, linked.get(), directory, name) == 0) {
        sync_directory(directory);
        return 0;
    }
    const int result = minus_errno();
    unlinkat(directory, linked.get(), 0);
    return result;
}

void remove_abandoned(int directory, int locked)
{
    alignas(dirent64) char entries[4096];
    ssize_t length;
    while ((length = getdents64(directory, entries, sizeof entries)) > 0) {
        for (ssize_t at = 0; at < length;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries + at);
            if (FreshName::matches(entry->d_name))
                remove_if_abandoned(directory, entry->d_name, locked);
            at += entry->d_reclen;
        }
    }
}

} // namespace ddal::core
