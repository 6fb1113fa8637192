// A loader link with a script at its other end: it supplies the input, keeps the output and counts the time.
#pragma once

#include <cerrno>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <vector>

#include "daemon/models/boot_loader.h"
#include "rf_card/link.h"

namespace testing_rf_card {

using Bytes = std::vector<uint8_t>;

inline Bytes framed(const Bytes &payload)
{
    const uint16_t crc = vboard::loader_crc(payload);
    Bytes bytes{0x80, static_cast<uint8_t>(payload.size()), static_cast<uint8_t>(payload.size() >> 8)};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bytes.push_back(static_cast<uint8_t>(crc));
    bytes.push_back(static_cast<uint8_t>(crc >> 8));
    return bytes;
}

inline Bytes operator+(Bytes left, const Bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class CountedClock final : public ddal::rf_card::Clock {
public:
    uint64_t ticks() override { return now; }
    uint64_t frequency() override { return 1'000'000; }
    void sleep_us(uint64_t microseconds) override
    {
        now += microseconds;
        sleeps.push_back(microseconds);
    }

    uint64_t now = 1'000'000'000;
    std::vector<uint64_t> sleeps;
};

class ScriptedStream final : public ddal::rf_card::ByteStream {
public:
    explicit ScriptedStream(CountedClock &clock) : clock_(clock) {}

    bool wait_readable(int timeout_ms) override
    {
        if (!incoming.empty() || read_error != 0)
            return true;
        clock_.now += static_cast<uint64_t>(timeout_ms) * 1000;
        return false;
    }
    ssize_t read_byte(uint8_t *byte) override
    {
        if (incoming.empty()) {
            errno = read_error;
            return -1;
        }
        *byte = incoming.front();
        incoming.pop_front();
        return 1;
    }
    ssize_t write_all(const uint8_t *data, uint32_t length) override
    {
        if (writes_left == 0) {
            errno = EIO;
            return -1;
        }
        --writes_left;
        sent.insert(sent.end(), data, data + length);
        return length;
    }
    void discard_output() override { flushed += 'o'; }
    void discard_input() override { flushed += 'i'; }
    int descriptor() const override { return 7; }

    std::deque<uint8_t> incoming;
    int read_error = 0;
    int writes_left = -1;
    Bytes sent;
    std::string flushed;

private:
    CountedClock &clock_;
};

class ScriptedLine {
public:
    explicit ScriptedLine(const Bytes &incoming = {}, int verbose = 0) : link_{stream, clock, timing, verbose, nullptr}
    {
        stream.incoming.assign(incoming.begin(), incoming.end());
    }
    operator ddal::rf_card::Link &() { return link_; }

    // Seconds that have passed since the beginning.
    double seconds() const { return static_cast<double>(clock.now - 1'000'000'000) / 1e6; }

    CountedClock clock;
    ScriptedStream stream{clock};
    ddal::rf_card::LinkTiming timing;

private:
    ddal::rf_card::Link link_;
};

} // namespace testing_rf_card
