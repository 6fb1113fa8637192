#include "core/copy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log.h"
#include "core/sigpipe_guard.h"
#include "core/stream.h"
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

// In pieces, so that signals are held for no longer than one of them takes.
bool write_pieces(FILE *to, const char *chunk, size_t len)
{
    for (size_t done = 0; done < len;) {
        const size_t piece = std::min(len - done, kPipePiece);
        wait_until_writable(to);
        errno = 0;
        if (write_stream(to, chunk + done, piece) != piece)
            return false;
        done += piece;
    }
    return true;
}

int copy_chunks(FILE *from, FILE *to, char (&chunk)[kCopyChunk])
{
    size_t got = 0;
    do {
        got = read_stream(from, chunk, sizeof chunk);
        if (got < sizeof chunk && !feof(from))
            return minus_errno(-EFAULT);
        if (!write_pieces(to, chunk, got))
            return minus_errno(-EFBIG);
    } while (got == sizeof chunk);
    return 0;
}

// The line of perror, which neither ends the caller nor waits for a reader that has stopped.
void print_error(const char *what)
{
    const int saved_errno = errno;
    SigpipeGuard guard;
    if (!takes_text(stderr))
        return;
    errno = saved_errno;
    perror(what);
    guard.caused(); // perror does not tell
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
        print_error("stat");
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
    const bool flushed = flush_stream(to.get()) == 0;
    if (!flushed || ferror(from.get()) || ferror(to.get()) || to.close() != 0)
        return -EIO;
    return 0;
}

} // namespace ddal::core
