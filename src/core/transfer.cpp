#include "core/transfer.h"

#include <cerrno>
#include <unistd.h>

#include "core/last_failure.h"

namespace {

// `step(done)` transfers bytes behind the first `done` and returns as read(2) does.
template <typename Step>
ssize_t move_all(size_t len, Step step)
{
    size_t done = 0;
    while (done < len) {
        const ssize_t n = step(done);
        if (n == 0)
            break;
        if (n > 0)
            done += static_cast<size_t>(n);
        else if (errno != EINTR)
            return -1;
    }
    return static_cast<ssize_t>(done);
}

} // namespace

ssize_t ddal_common_read_all(int fd, void *buf, size_t len)
{
    const ssize_t n = move_all(len, [=](size_t done) { return read(fd, static_cast<char *>(buf) + done, len - done); });
    if (n == 0 && len > 0)
        ddal::core::note_answer(fd);
    return n;
}

ssize_t ddal_common_write_all(int fd, const void *buf, size_t len)
{
    return move_all(len, [=](size_t done) { return write(fd, static_cast<const char *>(buf) + done, len - done); });
}

ssize_t ddal_common_pread_all(int fd, void *buf, size_t len, off_t offset)
{
    return move_all(len, [=](size_t done) {
        return pread(fd, static_cast<char *>(buf) + done, len - done, offset + static_cast<off_t>(done));
    });
}

ssize_t ddal_common_pwrite_all(int fd, const void *buf, size_t len, off_t offset)
{
    return move_all(len, [=](size_t done) {
        return pwrite(fd, static_cast<const char *>(buf) + done, len - done, offset + static_cast<off_t>(done));
    });
}
