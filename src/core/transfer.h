// Whole-length transfers on descriptors.
#pragma once

#include <cstddef>
#include <sys/types.h>

// Each moves `len` bytes, continues after EINTR and stops early at end of file. Returns the bytes moved, or -1 with
// errno on any other error.
ssize_t ddal_common_read_all(int fd, void *buf, size_t len);
ssize_t ddal_common_write_all(int fd, const void *buf, size_t len);
ssize_t ddal_common_pread_all(int fd, void *buf, size_t len, off_t offset);
ssize_t ddal_common_pwrite_all(int fd, const void *buf, size_t len, off_t offset);
