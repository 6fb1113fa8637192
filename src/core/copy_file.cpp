#include "core/copy.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log.h"
#include "core/replacement.h"
#include "core/sigpipe_guard.h"
#include "core/stream.h"
#include "core/text.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"

namespace ddal::core {

namespace {

constexpr const char *kCopyFile = "ddal_common_copy_file"; // name of the operation in the log
constexpr int kAttributesFailed = 1;                       // kept: the negation of what chown and chmod return
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Prints the line of perror, without raising SIGPIPE and without waiting for a reader that has stopped.
void print_error(const char *what)
{
    const int saved_errno = errno;
    SigpipeGuard guard;
    if (!takes_text(stderr))
        return;
    errno = saved_errno;
    perror(what);
    guard.caused(); // perror does not report an EPIPE
}

// Place of the copy: the open folder and the name in it.
struct Destination {
    UniqueFd folder;
    const char *name = "";
};

// Opens the folder of the destination. Follows links only within the first `trusted` characters of the path. On failure
// the folder is not open, and errno holds the reason.
Destination open_destination(const char *path, size_t trusted)
{
    char component[PATH_MAX];
    if (ddal_common_strlcpy(component, path, sizeof component) >= sizeof component) {
        errno = ENAMETOOLONG;
        return {};
    }
    component[trusted] = '\0';
    const bool absolute = path[0] == '/';
    const char *const start = trusted > 0 ? component : absolute ? "/" : ".";
    Destination destination{UniqueFd{open(start, kFolderFlags)}, path + trusted + (trusted > 0 || absolute ? 1 : 0)};
    while (const char *slash = destination.folder ? strchr(destination.name, '/') : nullptr) {
        const auto length = static_cast<size_t>(slash - destination.name);
        memcpy(component, destination.name, length);
        component[length] = '\0';
        destination.folder = UniqueFd{openat(destination.folder.get(), component, kFolderFlags | O_NOFOLLOW)};
        destination.name = slash + 1;
    }
    return destination;
}

int fill(FILE *from, FILE *to, const struct stat &attributes)
{
    // Owner first: chown clears the set-user-id bits.
    if (fchown(fileno(to), attributes.st_uid, attributes.st_gid) != 0 ||
        fchmod(fileno(to), attributes.st_mode & ALLPERMS) != 0)
        return kAttributesFailed;
    const int result = ddal_common_copy_stream(from, to);
    if (result != 0)
        return -result; // kept: a positive errno
    const bool flushed = flush_stream(to) == 0 && fsync(fileno(to)) == 0;
    return !flushed || ferror(from) || ferror(to) ? -EIO : 0;
}

int create_failed(const char *dst, int result)
{
    errno = -result; // for "%m"
    return log_error_as(kCopyFile, result, "error create %s: %m\n", dst);
}

int copy_to(const Destination &destination, FreshName &temporary, FILE *from, const struct stat &attributes,
            const char *dst)
{
    const UniqueStream to = UniqueStream::from(create_replacement(destination.folder.get(), temporary), "w");
    if (!to)
        return create_failed(dst, minus_errno());
    remove_abandoned(destination.folder.get(), -1);
    const int filled = fill(from, to.get(), attributes);
    if (filled != 0)
        return filled;
    const int put = put_in_place(fileno(to.get()), destination.folder.get(), destination.name);
    return put != 0 ? create_failed(dst, put) : 0;
}

} // namespace

int copy_file_below(const char *src, const char *dst, size_t trusted)
{
    struct stat attributes;
    if (stat(src, &attributes) != 0) {
        const int result = minus_errno();
        print_error("stat");
        return result;
    }
    const UniqueStream from{fopen(src, "re")};
    if (!from)
        return log_errno_as(kCopyFile, "error open %s: %m\n", src);
    const Destination destination = open_destination(dst, trusted);
    if (!destination.folder)
        return create_failed(dst, minus_errno());
    if (*destination.name == '\0')
        return create_failed(dst, -EISDIR);

    FreshName temporary;
    const int result = copy_to(destination, temporary, from.get(), attributes, dst);
    if (temporary)
        unlinkat(destination.folder.get(), temporary.get(), 0);
    return result;
}

} // namespace ddal::core

using namespace ddal::core;

int ddal_common_copy_file(const char *src, const char *dst)
{
    const char *const slash = strrchr(dst, '/');
    return copy_file_below(src, dst, slash ? static_cast<size_t>(slash - dst) : 0);
}
