#include "core/copy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/log.h"
#include "core/stream.h"

using namespace ddal::core;

namespace {

constexpr size_t kCopyChunk = 8192;

// Writes in pieces, so that signals are held for no longer than one piece takes.
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

} // namespace

int ddal_common_copy_stream(FILE *from, FILE *to)
{
    char chunk[kCopyChunk];
    const int result = copy_chunks(from, to, chunk);
    explicit_bzero(chunk, sizeof chunk); // passwords pass through here
    return result;
}
