// The loader link over a terminal device, with the system's clock.
#pragma once

#include "rf_card/link.h"

namespace ddal::rf_card {

class UartStream final : public ByteStream {
public:
    explicit UartStream(int fd) : fd_(fd) {}

    bool wait_readable(int timeout_ms) override;
    ssize_t read_byte(uint8_t *byte) override;
    ssize_t write_all(const uint8_t *data, uint32_t length) override;
    void discard_output() override;
    void discard_input() override;
    int descriptor() const override { return fd_; }

private:
    int fd_;
};

class SystemClock final : public Clock {
public:
    uint64_t ticks() override;
    uint64_t frequency() override;
    void sleep_us(uint64_t microseconds) override;
};

SystemClock &system_clock();

// A link over a descriptor; all share the process's link timing.
class UartLink {
public:
    UartLink(int fd, int verbose, Progress *progress = nullptr);
    UartLink(const UartLink &) = delete;
    UartLink &operator=(const UartLink &) = delete;

    operator Link &() { return link_; }

private:
    UartStream stream_;
    Link link_;
};

} // namespace ddal::rf_card
