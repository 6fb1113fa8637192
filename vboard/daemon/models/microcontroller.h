// The RF card's microcontroller, as seen from its pins: power, TEST and RST, the serial line, and the messages of its
// application. Bytes in, bytes out; all time is passed in.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "boot_loader.h"
#include "flash.h"

namespace vboard {

using BoardTime = int64_t; // nanoseconds

// How the host has set its end of the line.
struct LineFormat {
    uint32_t rate = 9600;
    bool even_parity_8 = true; // 8 data bits, even parity, one stop bit
    bool operator==(const LineFormat &) const = default;
};

// What may go wrong with the answer to one packet.
enum class LinkFault {
    kLost,        // that part never comes; without an acknowledgement there is no response either
    kLate,        // the part of the answer comes `delay` later
    kGarbled,     // one byte of it is wrong
    kSwappedCrc,  // response only
    kWrongHeader, // response only
    kHugeLength,  // response only: announces 65535 bytes
    kNoise,       // bytes after it that mean nothing
    kSilence,     // nothing from here on until the part is reset
    kReset,       // the part falls back into its application half way through
};
enum class AnswerPart { kAcknowledgement, kResponse };

struct ArmedFault {
    LinkFault kind;
    AnswerPart part;
    uint32_t packet; // counted from 1 since the faults were armed
    BoardTime delay = 0;
};

class Microcontroller {
public:
    enum class Mode { kOff, kReset, kStarting, kLoader, kApplication };

    Microcontroller();

    // Address of the application's version block, without which it does not run.
    void set_version_address(uint32_t address) { version_address_ = address; }
    uint32_t version_address() const { return version_address_; }
    void set_paced(bool paced) { paced_ = paced; }
    void set_ready_time(BoardTime span) { ready_time_ = span; }
    // The loader that the application carries and writes when it is told to.
    void set_carried_loader(const std::array<uint8_t, 4> &version) { carried_loader_ = version; }

    void set_power(bool on, BoardTime now);
    void set_pins(bool test, bool rst, BoardTime now);

    // Bytes from the host, sent in `format` from `now` on.
    void receive(std::span<const uint8_t> bytes, const LineFormat &format, BoardTime now);
    // When advance has something to do next.
    std::optional<BoardTime> next_event() const;
    // Lets time pass; returns the bytes that have come out, as a host listening in `format` sees them.
    std::vector<uint8_t> advance(const LineFormat &format, BoardTime now);

    // A message to the application: the bytes it answers, nothing when no application is listening.
    std::optional<std::vector<uint8_t>> message(uint8_t opcode, std::span<const uint8_t> sent, BoardTime now);

    void arm(const ArmedFault &fault) { faults_.push_back(fault); }
    // Drops all faults and counts packets from 1 again.
    void disarm();

    Mode mode() const { return mode_; }
    uint32_t rate() const { return rate_; }
    Flash &flash() { return flash_; }
    BootLoader &loader() { return loader_; }
    uint32_t packets() const { return packets_; }
    const std::vector<uint8_t> &commands() const
    {
        return commands_;
    } // of each packet since disarm; 0 for a refused one
    uint32_t gap_violations() const { return gap_violations_; }
    bool application_ready(BoardTime now) const;

private:
    struct TimedByte {
        BoardTime when;
        uint8_t byte;
        LineFormat format; // of the host, for received bytes
    };

    BoardTime byte_time(uint32_t rate) const;
    void power_up(BoardTime now);
    void leave_reset(BoardTime now);
    void start_application(BoardTime now);
    void take_byte(const TimedByte &received);
    void answer(const LoaderReply &reply, BoardTime now);
    BoardTime send(std::span<const uint8_t> bytes, BoardTime from);
    BoardTime send_part(AnswerPart part, std::vector<uint8_t> bytes, BoardTime from);
    const ArmedFault *fault_for(AnswerPart part) const;
    void finish_timers(BoardTime now);

    Flash flash_;
    BootLoader loader_{flash_};
    Mode mode_ = Mode::kOff;
    bool test_ = false;
    bool rst_ = true;
    BoardTime test_since_ = 0;
    BoardTime rst_since_ = 0;
    int test_pulses_ = 0; // rising edges of TEST since RST fell
    BoardTime loader_at_ = 0;
    BoardTime ready_at_ = 0;
    uint32_t rate_ = 9600;
    uint32_t next_rate_ = 0; // taken over when the last byte is out
    bool restarts_ = false;  // likewise, into the application
    bool silent_ = false;
    bool paced_ = false;
    BoardTime ready_time_;
    uint32_t version_address_ = 0x9000;
    std::array<uint8_t, 4> carried_loader_{0x00, 0x09, 0x36, 0x54};

    std::deque<TimedByte> incoming_;
    std::deque<TimedByte> outgoing_;
    BoardTime last_sent_ = 0;
    std::vector<ArmedFault> faults_;
    uint32_t packets_ = 0;
    std::vector<uint8_t> commands_;
    uint32_t gap_violations_ = 0;
};

} // namespace vboard
