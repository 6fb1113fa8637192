// Owner of one stdio stream.
#pragma once

#include <cerrno>
#include <cstdio>
#include <utility>

#include "core/unique_fd.h"

namespace ddal::core {

class UniqueStream {
public:
    UniqueStream() = default;
    explicit UniqueStream(FILE *stream) : stream_(stream) {}
    UniqueStream(UniqueStream &&other) noexcept : stream_(other.release()) {}
    UniqueStream &operator=(UniqueStream &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~UniqueStream() { reset(); }

    // Makes a stream that owns the descriptor. On failure it sets errno and closes the descriptor. An empty owner gives
    // an empty stream and keeps errno.
    static UniqueStream from(UniqueFd fd, const char *mode)
    {
        UniqueStream made{fd ? fdopen(fd.get(), mode) : nullptr};
        if (made)
            fd.release();
        return made;
    }

    explicit operator bool() const { return stream_ != nullptr; }
    FILE *get() const { return stream_; }
    FILE *release() { return std::exchange(stream_, nullptr); }

    // Closes the present stream. Keeps errno, so that a result can be built from it afterwards.
    void reset(FILE *stream = nullptr)
    {
        if (stream_) {
            const int saved_errno = errno;
            fclose(stream_);
            errno = saved_errno;
        }
        stream_ = stream;
    }

    // Closes the stream and returns the result, for callers that must know it.
    int close() { return fclose(release()); }

private:
    FILE *stream_ = nullptr;
};

} // namespace ddal::core
