// Owner of one memory mapping.
#pragma once

#include <cerrno>
#include <cstddef>
#include <sys/mman.h>
#include <sys/types.h>
#include <utility>

namespace ddal::core {

class Mapping {
public:
    Mapping() = default;
    // Maps `length` bytes of `fd`. Check with operator bool; errno holds the reason of a failure.
    Mapping(size_t length, int protection, int flags, int fd, off_t offset)
        : Mapping(mmap(nullptr, length, protection, flags, fd, offset), length)
    {
    }
    // Takes over the result of mmap.
    Mapping(void *address, size_t length) : address_(address == MAP_FAILED ? nullptr : address), length_(length) {}
    Mapping(Mapping &&other) noexcept : address_(other.release()), length_(other.length_) {}
    Mapping &operator=(Mapping &&other) noexcept
    {
        reset();
        length_ = other.length_;
        address_ = other.release();
        return *this;
    }
    ~Mapping() { reset(); }

    explicit operator bool() const { return address_ != nullptr; }
    void *get() const { return address_; }
    size_t size() const { return length_; }
    void *release() { return std::exchange(address_, nullptr); }

    // Unmaps the mapping, if there is one. Keeps errno.
    void reset()
    {
        if (!address_)
            return;
        const int saved_errno = errno;
        munmap(release(), length_);
        errno = saved_errno;
    }

private:
    void *address_ = nullptr;
    size_t length_ = 0;
};

} // namespace ddal::core
