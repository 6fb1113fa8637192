// Exclusive advisory lock on an open device, across processes and threads.
#pragma once

#include <cerrno>
#include <sys/file.h>

namespace ddal::logic {

// Waits for the lock on construction. Released explicitly: closing the descriptor would not do where a child of the
// process still shares it.
class DeviceLock {
public:
    explicit DeviceLock(int fd) : fd_(fd)
    {
        do
            held_ = flock(fd_, LOCK_EX) == 0;
        while (!held_ && errno == EINTR);
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

    // False, with errno, if the lock could not be had.
    explicit operator bool() const { return held_; }

private:
    int fd_;
    bool held_;
};

} // namespace ddal::logic
