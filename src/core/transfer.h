// Whole-length transfers on descriptors.
#pragma once

#include <cerrno>
#include <cstddef>
#include <sys/types.h>

// Each moves `len` bytes, continues after EINTR and stops early at end of file. Returns the bytes moved, or -1 with
// errno on any other error.
ssize_t ddal_common_read_all(int fd, void *buf, size_t len);
ssize_t ddal_common_write_all(int fd, const void *buf, size_t len);
ssize_t ddal_common_pread_all(int fd, void *buf, size_t len, off_t offset);
ssize_t ddal_common_pwrite_all(int fd, const void *buf, size_t len, off_t offset);

namespace ddal::core {

// Repeats a transfer after EINTR, and reports whether it moved `len` bytes in one request, as a register needs: two
// halves from two moments would form a value that it never had. Leaves errno at 0 after a short transfer.
template <typename Transfer>
bool moves_whole(size_t len, Transfer transfer)
{
    ssize_t n = 0;
    do {
        errno = 0; // a short transfer does not set it
        n = transfer();
    } while (n < 0 && errno == EINTR);
    return n >= 0 && static_cast<size_t>(n) == len;
}

} // namespace ddal::core
