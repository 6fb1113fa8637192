// Opening files.
#include "shim.h"

#include <dirent.h>
#include <fcntl.h>
#include <mntent.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "page/protocol.h"

#ifndef O_LARGEFILE
#define O_LARGEFILE 0
#endif

extern "C" ssize_t shim_read(int fd, void *buffer, size_t length) __asm__("read");
extern "C" ssize_t shim_write(int fd, const void *buffer, size_t length) __asm__("write");
extern "C" int64_t shim_lseek64(int fd, int64_t offset, int whence) __asm__("lseek64");

namespace vboard::shim {

namespace {

bool writes(int flags)
{
    if (flags & O_PATH)
        return false;
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

// Requests the program's end of a channel from the daemon.
int open_channel(const Node &node, int flags)
{
    Exchange message{};
    message.op = static_cast<uint32_t>(Op::kOpen);
    message.node = node.id;
    message.flags = static_cast<uint32_t>(flags);
    const long result = exchange(message);
    if (result < 0) {
        errno = static_cast<int>(-result);
        return -1;
    }
    if (!(flags & O_CLOEXEC))
        syscall(SYS_fcntl, message.received_fd, F_SETFD, 0);
    if (flags & O_NONBLOCK)
        syscall(SYS_fcntl, message.received_fd, F_SETFL, O_NONBLOCK);
    return message.received_fd;
}

mode_t mode_argument(int flags, va_list arguments)
{
    const bool creates = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

// Returns the open flags of a stdio mode string, or -1 for an invalid one.
int flags_of(const char *mode)
{
    int flags;
    switch (mode[0]) {
    case 'r': flags = O_RDONLY; break;
    case 'w': flags = O_WRONLY | O_CREAT | O_TRUNC; break;
    case 'a': flags = O_WRONLY | O_CREAT | O_APPEND; break;
    default: return -1;
    }
    for (const char *p = mode + 1; *p && *p != ','; ++p) {
        if (*p == '+')
            flags = (flags & ~O_ACCMODE) | O_RDWR;
        else if (*p == 'e')
            flags |= O_CLOEXEC;
        else if (*p == 'x')
            flags |= O_EXCL;
    }
    return flags;
}

int open_node(const Node &node, int flags)
{
    if (flags & O_DIRECTORY) {
        errno = ENOTDIR;
        return -1;
    }
    const bool is_attribute = node.kind == NodeKind::kAttribute;
    if (!is_attribute && node.kind != NodeKind::kModel)
        return open_channel(node, flags);
    char path[PATH_MAX];
    place_of(node, is_attribute ? kNodeFiles : kNodeHandles, path, sizeof path);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags_with_mode(flags) | O_LARGEFILE, 0));
}

// The node behind a name, or behind "/proc/self/fd/7".
const Node *node_to_open(const Path &path)
{
    const int fd = descriptor_of(path.board);
    if (fd < 0)
        return node_named(path);
    const Node *node = node_of(fd);
    return node && (node->kind == NodeKind::kModel || node->kind == NodeKind::kAttribute) ? node : nullptr;
}

int open_resolved(Path &path, int flags, mode_t mode)
{
    if (flags & O_PATH)
        lead_to_file(path);
    else if (const Node *node = node_to_open(path))
        return open_node(*node, flags);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path.host, flags | O_LARGEFILE, mode));
}

int open_named(const char *call, int directory, const char *path, int flags, mode_t mode)
{
    const bool exclusive = (flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL);
    unsigned how = (flags & O_NOFOLLOW) || exclusive ? 0 : unsigned{kFollow};
    if (writes(flags))
        how |= kWrite;
    Path where;
    if (!resolve(directory, path, how, where))
        return -1;
    Call around(call, where);
    around.about(UINT64_MAX, static_cast<uint32_t>(flags), nullptr, 0);
    if (around.fails())
        return -1;
    return static_cast<int>(around.done(open_resolved(where, flags, mode)));
}

constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";

void fill_letters(char *at)
{
    uint64_t bits = 0;
    if (syscall(SYS_getrandom, &bits, sizeof bits, 0) < 0)
        bits = reinterpret_cast<uintptr_t>(&bits);
    for (int i = 0; i < 6; ++i, bits /= 36)
        at[i] = kLetters[bits % 36];
}

// Returns the six X before a suffix, or null if the template lacks them.
char *template_letters(char *name, int suffix)
{
    const size_t n = length_of(name);
    if (suffix < 0 || n < 6 + static_cast<size_t>(suffix))
        return nullptr;
    char *at = name + n - 6 - suffix;
    return starts_with(at, "XXXXXX") ? at : nullptr;
}

int make_temporary(char *name, int suffix, int flags)
{
    char *letters = template_letters(name, suffix);
    if (!letters) {
        errno = EINVAL;
        return -1;
    }
    for (int tries = 0; tries < 100; ++tries) {
        fill_letters(letters);
        const int fd = open_named("open", AT_FDCWD, name, O_RDWR | O_CREAT | O_EXCL | flags, 0600);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    return -1;
}

// A buffered stream reads and writes inside libc, where models cannot be reached. These functions take its transfers
// back.
ssize_t stream_read(void *cookie, char *buffer, size_t length)
{
    return shim_read(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), buffer, length);
}

ssize_t stream_write(void *cookie, const char *buffer, size_t length)
{
    const ssize_t n = shim_write(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), buffer, length);
    return n < 0 ? 0 : n; // the form in which a stream reports an error
}

int stream_seek(void *cookie, off64_t *offset, int whence)
{
    const int64_t at = shim_lseek64(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), *offset, whence);
    *offset = at;
    return at < 0 ? -1 : 0;
}

int stream_close(void *cookie)
{
    return static_cast<int>(syscall(SYS_close, reinterpret_cast<intptr_t>(cookie)));
}

FILE *open_stream(const char *path, const char *mode)
{
    const int flags = flags_of(mode);
    if (flags < 0) {
        errno = EINVAL;
        return nullptr;
    }
    const int fd = open_named("fopen", AT_FDCWD, path, flags, 0666);
    if (fd < 0)
        return nullptr;
    FILE *stream = stream_on(fd, mode);
    if (!stream) {
        KeepErrno keep;
        syscall(SYS_close, fd);
    }
    return stream;
}

} // namespace

FILE *stream_on(int fd, const char *mode)
{
    const Node *node = node_of(fd);
    if (!node || node->kind == NodeKind::kPlain || node->kind == NodeKind::kChannel)
        return NEXT(FILE * (int, const char *), fdopen)(fd, mode);
    const cookie_io_functions_t calls = {stream_read, stream_write, stream_seek, stream_close};
    FILE *stream = fopencookie(reinterpret_cast<void *>(intptr_t{fd}), mode, calls);
    if (stream)
        stream->_fileno = fd; // so that fileno returns it
    return stream;
}

int open_path(int directory, const char *path, int flags, mode_t mode)
{
    return open_named("open", directory, path, flags, mode);
}

bool copy_file(const char *from, const char *to)
{
    struct statx info;
    constexpr int kReading = O_CLOEXEC | O_LARGEFILE; // O_RDONLY is 0
    const long in = syscall(SYS_openat, AT_FDCWD, from, kReading, 0);
    if (in < 0)
        return false;
    mode_t mode = 0644;
    if (syscall(SYS_statx, in, "", AT_EMPTY_PATH, STATX_MODE, &info) == 0)
        mode = info.stx_mode & 07777;
    const long out = syscall(SYS_openat, AT_FDCWD, to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    char buffer[4096];
    long n = out < 0 ? -1 : 1;
    while (n > 0 && (n = syscall(SYS_read, in, buffer, sizeof buffer)) > 0)
        n = syscall(SYS_write, out, buffer, n);
    if (out >= 0)
        syscall(SYS_close, out);
    syscall(SYS_close, in);
    return n == 0;
}

#define WRAP_OPEN(tag, symbol)                                                                                         \
    WRAP_AS(int, tag, symbol, const char *path, int flags, ...)                                                        \
    {                                                                                                                  \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        const mode_t mode = mode_argument(flags, arguments);                                                           \
        va_end(arguments);                                                                                             \
        return open_named("open", AT_FDCWD, path, flags, mode);                                                        \
    }
WRAP_OPEN(open, "open")
WRAP_OPEN(open64, "open64")

#define WRAP_OPENAT(tag, symbol)                                                                                       \
    WRAP_AS(int, tag, symbol, int directory, const char *path, int flags, ...)                                         \
    {                                                                                                                  \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        const mode_t mode = mode_argument(flags, arguments);                                                           \
        va_end(arguments);                                                                                             \
        return open_named("open", directory, path, flags, mode);                                                       \
    }
WRAP_OPENAT(openat, "openat")
WRAP_OPENAT(openat64, "openat64")

#define WRAP_OPEN_2(tag, symbol)                                                                                       \
    WRAP_AS(int, tag, symbol, const char *path, int flags)                                                             \
    {                                                                                                                  \
        return open_named("open", AT_FDCWD, path, flags, 0);                                                           \
    }
WRAP_OPEN_2(open_2, "__open_2")
WRAP_OPEN_2(open64_2, "__open64_2")

#define WRAP_OPENAT_2(tag, symbol)                                                                                     \
    WRAP_AS(int, tag, symbol, int directory, const char *path, int flags)                                              \
    {                                                                                                                  \
        return open_named("open", directory, path, flags, 0);                                                          \
    }
WRAP_OPENAT_2(openat_2, "__openat_2")
WRAP_OPENAT_2(openat64_2, "__openat64_2")

#define WRAP_CREAT(tag, symbol)                                                                                        \
    WRAP_AS(int, tag, symbol, const char *path, mode_t mode)                                                           \
    {                                                                                                                  \
        return open_named("open", AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode);                                 \
    }
WRAP_CREAT(creat, "creat")
WRAP_CREAT(creat64, "creat64")

WRAP(FILE *, fopen, const char *path, const char *mode)
{
    return open_stream(path, mode);
}

WRAP(FILE *, fopen64, const char *path, const char *mode)
{
    return open_stream(path, mode);
}

#define WRAP_FREOPEN(tag, symbol)                                                                                      \
    WRAP_AS(FILE *, tag, symbol, const char *path, const char *mode, FILE *stream)                                     \
    {                                                                                                                  \
        auto *real = NEXT(FILE * (const char *, const char *, FILE *), freopen);                                       \
        if (!path)                                                                                                     \
            return real(path, mode, stream);                                                                           \
        const int flags = flags_of(mode);                                                                              \
        Path where;                                                                                                    \
        if (flags < 0 || !resolve(AT_FDCWD, path, kFollow | (writes(flags) ? unsigned{kWrite} : 0), where))            \
            return nullptr;                                                                                            \
        return real(where.host, mode, stream);                                                                         \
    }
WRAP_FREOPEN(freopen, "freopen")
WRAP_FREOPEN(freopen64, "freopen64")

WRAP(FILE *, setmntent, const char *path, const char *mode)
{
    return open_stream(path, mode);
}

WRAP(DIR *, opendir, const char *path)
{
    Path where;
    if (!resolve(AT_FDCWD, path, kFollow, where))
        return nullptr;
    Call around("opendir", where);
    if (around.fails())
        return nullptr;
    return around.done_with(NEXT(DIR * (const char *), opendir)(where.host));
}

#define WRAP_SCANDIR(tag, symbol, entry)                                                                               \
    WRAP_AS(int, tag, symbol, const char *path, struct entry ***list, int (*keep)(const struct entry *),               \
            int (*order)(const struct entry **, const struct entry **))                                                \
    {                                                                                                                  \
        Path where;                                                                                                    \
        if (!resolve(AT_FDCWD, path, kFollow, where))                                                                  \
            return -1;                                                                                                 \
        using Scan = int(const char *, struct entry ***, int (*)(const struct entry *),                                \
                         int (*)(const struct entry **, const struct entry **));                                       \
        static Scan *real;                                                                                             \
        return next<Scan>(real, symbol)(where.host, list, keep, order);                                                \
    }
WRAP_SCANDIR(scandir, "scandir", dirent)
WRAP_SCANDIR(scandir64, "scandir64", dirent64)

WRAP(int, mkstemp, char *name)
{
    return make_temporary(name, 0, 0);
}

WRAP(int, mkstemp64, char *name)
{
    return make_temporary(name, 0, 0);
}

WRAP(int, mkostemp, char *name, int flags)
{
    return make_temporary(name, 0, flags & ~O_ACCMODE);
}

WRAP(int, mkostemp64, char *name, int flags)
{
    return make_temporary(name, 0, flags & ~O_ACCMODE);
}

WRAP(int, mkstemps, char *name, int suffix)
{
    return make_temporary(name, suffix, 0);
}

WRAP(int, mkostemps, char *name, int suffix, int flags)
{
    return make_temporary(name, suffix, flags & ~O_ACCMODE);
}

WRAP(char *, mktemp, char *name)
{
    char *letters = name ? template_letters(name, 0) : nullptr;
    if (letters) {
        fill_letters(letters);
        return name;
    }
    errno = EINVAL;
    if (name)
        name[0] = '\0';
    return name;
}

WRAP(char *, mkdtemp, char *name)
{
    char *letters = template_letters(name, 0);
    if (!letters) {
        errno = EINVAL;
        return nullptr;
    }
    for (int tries = 0; tries < 100; ++tries) {
        fill_letters(letters);
        Path where;
        if (!resolve(AT_FDCWD, name, kWrite, where))
            return nullptr;
        if (syscall(SYS_mkdirat, AT_FDCWD, where.host, 0700) == 0)
            return name;
        if (errno != EEXIST)
            return nullptr;
    }
    return nullptr;
}

namespace {

char *real_path(const char *path, char *out)
{
    Path where;
    if (!resolve(AT_FDCWD, path, kFollow, where))
        return nullptr;
    if (syscall(SYS_faccessat, AT_FDCWD, where.host, F_OK) != 0)
        return nullptr;
    if (!out && !(out = static_cast<char *>(malloc(PATH_MAX)))) // the caller frees it
        return nullptr;
    copy_text(out, PATH_MAX, where.board);
    return out;
}

} // namespace

WRAP(char *, realpath, const char *path, char *out)
{
    return real_path(path, out);
}

WRAP_AS(char *, realpath_chk, "__realpath_chk", const char *path, char *out, size_t)
{
    return real_path(path, out);
}

WRAP(char *, canonicalize_file_name, const char *path)
{
    return real_path(path, nullptr);
}

} // namespace vboard::shim
