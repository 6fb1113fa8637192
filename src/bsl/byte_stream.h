// What the loader link needs of the world: bytes and time.
#pragma once

#include <cstdint>
#include <sys/types.h>

namespace ddal::bsl {

class ByteStream {
public:
    virtual ~ByteStream() = default;

    // True when a read would not wait; false when nothing came within the time-out.
    virtual bool wait_readable(int timeout_ms) = 0;
    // As read(2) of one byte.
    virtual ssize_t read_byte(uint8_t *byte) = 0;
    // The whole length, or -1 with errno.
    virtual ssize_t write_all(const uint8_t *data, uint32_t length) = 0;
    virtual void discard_output() = 0;
    virtual void discard_input() = 0;
    // Number shown in the byte trace.
    virtual int descriptor() const = 0;

protected:
    ByteStream() = default;
    ByteStream(const ByteStream &) = default;
    ByteStream &operator=(const ByteStream &) = default;
};

// Without a destructor to run: the process's clock stays usable for threads that still run while the process exits.
class Clock {
public:
    // A free-running counter and its rate in Hz.
    virtual uint64_t ticks() = 0;
    virtual uint64_t frequency() = 0;
    virtual void sleep_us(uint64_t microseconds) = 0;

protected:
    Clock() = default;
    ~Clock() = default;
    Clock(const Clock &) = default;
    Clock &operator=(const Clock &) = default;
};

} // namespace ddal::bsl
