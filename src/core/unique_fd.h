// Owner of one file descriptor.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace ddal::core {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

    // Closes the present descriptor. Keeps errno, so that a result can be built from it afterwards.
    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            const int saved_errno = errno;
            ::close(fd_);
            errno = saved_errno;
        }
        fd_ = fd;
    }

    // Closes the descriptor and returns the result, for callers that must know it.
    int close() { return ::close(release()); }

private:
    int fd_ = -1;
};

} // namespace ddal::core
