// Copy of a file inside the kernel, for the replacement of settings files.
#include "core/atomic_file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "core/log.h"
#include "core/unique_fd.h"

namespace ddal::core {

namespace {

constexpr size_t kSpliceChunk = 65536;
constexpr unsigned kSpliceFlags = SPLICE_F_MOVE | SPLICE_F_NONBLOCK | SPLICE_F_MORE;

// Calls splice(2) and continues after EINTR. Where the call would have to wait, it is repeated without
// SPLICE_F_NONBLOCK: that neither spins nor drops data that is already in the pipe.
ssize_t splice_some(int from, int to, size_t len)
{
    unsigned flags = kSpliceFlags;
    for (;;) {
        const ssize_t n = splice(from, nullptr, to, nullptr, len, flags);
        if (n >= 0)
            return n;
        if (errno == EAGAIN && (flags & SPLICE_F_NONBLOCK))
            flags &= ~static_cast<unsigned>(SPLICE_F_NONBLOCK);
        else if (errno != EINTR)
            return -1;
    }
}

// Moves `len` bytes out of the pipe. Returns false with errno, which may be 0.
bool drain(int pipe, int to, size_t len)
{
    while (len > 0) {
        errno = 0;
        const ssize_t n = splice_some(pipe, to, len);
        if (n <= 0)
            return false;
        len -= static_cast<size_t>(n);
    }
    return true;
}

bool rewind_both(int from, int to)
{
    return lseek(from, 0, SEEK_SET) == 0 && lseek(to, 0, SEEK_SET) == 0;
}

} // namespace

int copy_file_splice(int from, int to)
{
    int ends[2];
    if (!rewind_both(from, to) || pipe2(ends, O_CLOEXEC) != 0)
        return minus_errno();
    const UniqueFd read_end{ends[0]};
    const UniqueFd write_end{ends[1]};

    for (;;) {
        const ssize_t n = splice_some(from, write_end.get(), kSpliceChunk);
        if (n < 0)
            return log_errno("splice in: %m\n");
        if (n == 0)
            break;
        if (!drain(read_end.get(), to, static_cast<size_t>(n)))
            return log_errno("splice out: %m\n");
    }
    return rewind_both(from, to) ? 0 : minus_errno();
}

} // namespace ddal::core
