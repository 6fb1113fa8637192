// Interfaces of the loader link to the outside: bytes and time.
#pragma once

#include <cstdint>
#include <sys/types.h>

namespace ddal::rf_card {

class ByteStream {
public:
    virtual ~ByteStream() = default;

    // Returns true when a read would not block, false when no byte arrives within the time-out.
    virtual bool wait_readable(int timeout_ms) = 0;
    // Reads one byte. Returns as read(2) does.
    virtual ssize_t read_byte(uint8_t *byte) = 0;
    // Writes the whole length. Returns it, or -1 with errno.
    virtual ssize_t write_all(const uint8_t *data, uint32_t length) = 0;
    virtual void discard_output() = 0;
    virtual void discard_input() = 0;
    // Returns the number shown in the byte trace.
    virtual int descriptor() const = 0;

protected:
    ByteStream() = default;
    ByteStream(const ByteStream &) = default;
    ByteStream &operator=(const ByteStream &) = default;
};

// Needs no destructor, so that threads can use the process's clock while the process exits.
class Clock {
public:
    // Returns a free-running counter, and its rate in Hz.
    virtual uint64_t ticks() = 0;
    virtual uint64_t frequency() = 0;
    virtual void sleep_us(uint64_t microseconds) = 0;

protected:
    Clock() = default;
    ~Clock() = default;
    Clock(const Clock &) = default;
    Clock &operator=(const Clock &) = default;
};

} // namespace ddal::rf_card
