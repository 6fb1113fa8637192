// Exclusive advisory lock on an open device or file, across processes and threads.
#pragma once

#include <cerrno>
#include <sys/file.h>

#include "core/last_failure.h"

namespace ddal::core {

// Waits for the lock on construction. Releases it explicitly: a close would leave it to a child of the process that
// still shares the descriptor.
class DeviceLock {
public:
    explicit DeviceLock(int fd) : fd_(fd)
    {
        do
            held_ = flock(fd_, LOCK_EX) == 0;
        while (!held_ && errno == EINTR);
        if (!held_)
            note_access(fd_);
    }
    DeviceLock(const DeviceLock &) = delete;
    DeviceLock &operator=(const DeviceLock &) = delete;
    ~DeviceLock()
    {
        if (!held_)
            return;
        const int saved_errno = errno;
        flock(fd_, LOCK_UN);
        errno = saved_errno;
    }

    // False with errno if the lock could not be taken.
    explicit operator bool() const { return held_; }

private:
    int fd_;
    bool held_;
};

} // namespace ddal::core
