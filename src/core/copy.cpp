#include "core/copy.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log.h"
#include "core/unique_stream.h"

namespace ddal::core {

namespace {

constexpr size_t kCopyChunk = 8192;
constexpr int kAttributesFailed = 1; // kept: the negation of what chown and chmod return

bool copy_attributes(const struct stat &from, const char *path)
{
    // chown first: it clears the set-user-id bits.
    return chown(path, from.st_uid, from.st_gid) == 0 && chmod(path, from.st_mode & ALLPERMS) == 0;
}

int copy_chunks(FILE *from, FILE *to, char (&chunk)[kCopyChunk])
{
    size_t got = 0;
    do {
        errno = 0;
        got = fread(chunk, 1, sizeof chunk, from);
        if (got < sizeof chunk && !feof(from))
            return minus_errno(-EFAULT);
        errno = 0;
        if (got > 0 && fwrite(chunk, 1, got, to) != got)
            return minus_errno(-EFBIG);
    } while (got == sizeof chunk);
    return 0;
}

} // namespace

int ddal_common_copy_stream(FILE *from, FILE *to)
{
    char chunk[kCopyChunk];
    const int result = copy_chunks(from, to, chunk);
    explicit_bzero(chunk, sizeof chunk); // passwords pass through here
    return result;
}

int ddal_common_copy_file(const char *src, const char *dst)
{
    struct stat attributes;
    if (stat(src, &attributes) != 0) {
        const int result = minus_errno();
        perror("stat");
        return result;
    }
    const UniqueStream from{fopen(src, "re")};
    if (!from)
        return log_errno("error open %s: %m\n", src);
    UniqueStream to{fopen(dst, "we")};
    if (!to)
        return log_errno("error create %s: %m\n", dst);
    if (!copy_attributes(attributes, dst))
        return kAttributesFailed;

    const int result = ddal_common_copy_stream(from.get(), to.get());
    if (result != 0)
        return -result; // kept: a positive errno
    const bool flushed = fflush(to.get()) == 0;
    if (!flushed || ferror(from.get()) || ferror(to.get()) || to.close() != 0)
        return -EIO;
    return 0;
}

} // namespace ddal::core
