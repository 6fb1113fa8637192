// Accounts, named semaphores and the list of open descriptors, which libc would otherwise look up on the host.
#include "shim.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <semaphore.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

namespace vboard::shim {

// --- accounts: the board's /etc/passwd and /etc/group ----------------------------------------------------------------

namespace {

FILE *open_database(const char *board_path)
{
    Path where;
    if (!resolve(AT_FDCWD, board_path, kFollow, where))
        return nullptr;
    return NEXT(FILE * (const char *, const char *), fopen)(where.host, "re");
}

// Reads entries until one fits. Returns 0 with a null *found if none fits, as getpwnam_r requires.
template <typename Entry, typename Fits>
int look_up(const char *path, int (*next_entry)(FILE *, Entry *, char *, size_t, Entry **), Entry *entry, char *buffer,
            size_t size, Entry **found, Fits fits)
{
    *found = nullptr;
    KeepErrno keep;
    FILE *stream = open_database(path);
    if (!stream)
        return 0;
    int error;
    while ((error = next_entry(stream, entry, buffer, size, found)) == 0 && !fits(*entry))
        ;
    NEXT(int(FILE *), fclose)(stream);
    if (error == 0)
        return 0;
    *found = nullptr;
    return error == ENOENT ? 0 : error;
}

int find_user(const char *name, uid_t id, passwd *entry, char *buffer, size_t size, passwd **found)
{
    return look_up("/etc/passwd", fgetpwent_r, entry, buffer, size, found,
                   [&](const passwd &p) { return name ? same(p.pw_name, name) : p.pw_uid == id; });
}

int find_group(const char *name, gid_t id, group *entry, char *buffer, size_t size, group **found)
{
    return look_up("/etc/group", fgetgrent_r, entry, buffer, size, found,
                   [&](const group &g) { return name ? same(g.gr_name, name) : g.gr_gid == id; });
}

char g_buffer[4096]; // for the calls that are not re-entrant
passwd g_passwd;
group g_group;

} // namespace

WRAP(int, getpwnam_r, const char *name, passwd *entry, char *buffer, size_t size, passwd **found)
{
    return find_user(name, 0, entry, buffer, size, found);
}

WRAP(int, getpwuid_r, uid_t id, passwd *entry, char *buffer, size_t size, passwd **found)
{
    return find_user(nullptr, id, entry, buffer, size, found);
}

WRAP(passwd *, getpwnam, const char *name)
{
    passwd *found = nullptr;
    const int error = find_user(name, 0, &g_passwd, g_buffer, sizeof g_buffer, &found);
    if (error)
        errno = error;
    return found;
}

WRAP(passwd *, getpwuid, uid_t id)
{
    passwd *found = nullptr;
    const int error = find_user(nullptr, id, &g_passwd, g_buffer, sizeof g_buffer, &found);
    if (error)
        errno = error;
    return found;
}

WRAP(int, getgrnam_r, const char *name, group *entry, char *buffer, size_t size, group **found)
{
    return find_group(name, 0, entry, buffer, size, found);
}

WRAP(group *, getgrnam, const char *name)
{
    group *found = nullptr;
    const int error = find_group(name, 0, &g_group, g_buffer, sizeof g_buffer, &found);
    if (error)
        errno = error;
    return found;
}

// --- named semaphores: files of the board, one set for each word size ------------------------------------------------

namespace {

void semaphore_path(const char *name, char *path, size_t size)
{
    copy_text(path, size, page()->private_dir);
    append(path, size, sizeof(void *) == 8 ? "/names/sem64." : "/names/sem32.");
    append(path, size, name[0] == '/' ? name + 1 : name);
}

// Gives a new semaphore its name only when it is ready.
bool make_semaphore(const char *path, mode_t mode, unsigned value)
{
    sem_t fresh;
    if (NEXT(int(sem_t *, int, unsigned), sem_init)(&fresh, 1, value) != 0)
        return false;
    const long fd = syscall(SYS_openat, AT_FDCWD, page()->private_dir, O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    if (fd < 0)
        return false;
    char link[64] = "/proc/self/fd/";
    char digits[24];
    digits[23] = '\0';
    append(link, sizeof link, format_number(static_cast<uint64_t>(fd), digits + 23));
    const bool done = syscall(SYS_write, fd, &fresh, sizeof fresh) == static_cast<long>(sizeof fresh) &&
                      syscall(SYS_linkat, AT_FDCWD, link, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0;
    KeepErrno keep;
    syscall(SYS_close, fd);
    return done;
}

sem_t *map_semaphore(const char *path)
{
    const long fd = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    using Map = void *(void *, size_t, int, int, int, off_t);
    void *at = NEXT(Map, mmap)(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(fd), 0);
    KeepErrno keep;
    syscall(SYS_close, fd);
    return at == MAP_FAILED ? nullptr : static_cast<sem_t *>(at);
}

} // namespace

WRAP(sem_t *, sem_open, const char *name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
    const unsigned value = (flags & O_CREAT) ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    Call around("sem_open", name);
    if (around.fails())
        return nullptr;
    char path[PATH_MAX];
    semaphore_path(name, path, sizeof path);
    if (flags & O_CREAT) {
        const bool made = make_semaphore(path, mode, value);
        if (!made && (errno != EEXIST || (flags & O_EXCL)))
            return nullptr;
    }
    return map_semaphore(path);
}

WRAP(int, sem_close, sem_t *semaphore)
{
    return static_cast<int>(syscall(SYS_munmap, semaphore, sizeof(sem_t)));
}

WRAP(int, sem_unlink, const char *name)
{
    char path[PATH_MAX];
    semaphore_path(name, path, sizeof path);
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

// --- shared memory and the lock of the account files: libc names them without a wrapped call -------------------------

namespace {

int g_account_lock = -1;

bool shared_memory_path(const char *name, char *path, size_t size)
{
    while (*name == '/')
        ++name;
    bool has_slash = false;
    for (const char *p = name; *p; ++p)
        has_slash = has_slash || *p == '/';
    copy_text(path, size, "/dev/shm/");
    if (*name && !has_slash && append(path, size, name))
        return true;
    errno = EINVAL;
    return false;
}

} // namespace

WRAP(int, shm_open, const char *name, int flags, mode_t mode)
{
    char path[NAME_MAX + 16];
    return shared_memory_path(name, path, sizeof path)
               ? open_path(AT_FDCWD, path, flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, mode)
               : -1;
}

WRAP(int, shm_unlink, const char *name)
{
    char path[NAME_MAX + 16];
    Path where;
    if (!shared_memory_path(name, path, sizeof path) || !resolve(AT_FDCWD, path, kRemove, where))
        return -1;
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, where.host, 0));
}

WRAP(int, lckpwdf, void)
{
    constexpr int kTries = 150; // 15 s, as long as libc tries
    constexpr timespec kPause{0, 100000000};
    if (g_account_lock >= 0)
        return -1;
    const int fd = open_path(AT_FDCWD, "/etc/.pwd.lock", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    for (int i = 0; fd >= 0 && i < kTries; ++i) {
        if (NEXT(int(int, int, ...), fcntl)(fd, F_SETLK, &whole) == 0) {
            g_account_lock = fd;
            return 0;
        }
        syscall(SYS_nanosleep, &kPause, nullptr);
    }
    if (fd >= 0)
        syscall(SYS_close, fd);
    return -1;
}

WRAP(int, ulckpwdf, void)
{
    if (g_account_lock < 0)
        return -1;
    const long result = syscall(SYS_close, g_account_lock);
    g_account_lock = -1;
    return static_cast<int>(result);
}

// --- directory listings: the library's own descriptor stays out of them ----------------------------------------------

namespace {

int number_of(const char *name)
{
    int value = 0;
    for (; *name; ++name) {
        if (*name < '0' || *name > '9' || value > 1000000)
            return -1;
        value = value * 10 + (*name - '0');
    }
    return value;
}

bool lists_descriptors(int directory)
{
    char name[PATH_MAX];
    name_of_descriptor(directory, name, sizeof name);
    const size_t n = length_of(name);
    return starts_with(name, "/proc/") && n > 3 && same(name + n - 3, "/fd");
}

} // namespace

WRAP(ssize_t, getdents64, int fd, void *buffer, size_t length)
{
    const long n = syscall(SYS_getdents64, fd, buffer, length);
    if (n <= 0 || !lists_descriptors(fd))
        return n;
    auto *bytes = static_cast<char *>(buffer);
    long kept = 0;
    for (long at = 0; at < n;) {
        const auto *entry = reinterpret_cast<const dirent64 *>(bytes + at);
        const long size = entry->d_reclen;
        const bool hide = is_own_descriptor(number_of(entry->d_name));
        if (!hide) {
            memmove(bytes + kept, bytes + at, static_cast<size_t>(size));
            kept += size;
        }
        at += size;
    }
    return kept;
}

#define WRAP_READDIR(tag, entry)                                                                                       \
    WRAP_AS(entry *, tag, #tag, DIR *directory)                                                                        \
    {                                                                                                                  \
        Call around("readdir", dirfd(directory));                                                                      \
        if (around.fails())                                                                                            \
            return nullptr;                                                                                            \
        auto *real = NEXT(entry * (DIR *), tag);                                                                       \
        entry *found = real(directory);                                                                                \
        while (found && is_own_descriptor(number_of(found->d_name)) && lists_descriptors(dirfd(directory)))            \
            found = real(directory);                                                                                   \
        return found;                                                                                                  \
    }
WRAP_READDIR(readdir, dirent)
WRAP_READDIR(readdir64, dirent64)

} // namespace vboard::shim
