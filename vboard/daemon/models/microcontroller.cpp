#include "microcontroller.h"

#include <algorithm>
#include <utility>

#include "rf_card/rf_card_driver.h"

namespace vboard {

using namespace ddal::rf_card;

namespace {

constexpr BoardTime kMicrosecond = 1'000;
constexpr BoardTime kMillisecond = 1'000'000;
constexpr BoardTime kSecond = 1'000'000'000;

constexpr int kBitsPerByte = 11; // start, 8 data, parity, stop
constexpr uint32_t kStartRate = 9600;

constexpr BoardTime kShortestLevel = 200 * kMicrosecond; // a pin level that the part notices
constexpr int kEntryPulses = 2;                          // rising edges of TEST with RST low
constexpr BoardTime kLoaderStart = 100 * kMillisecond;   // from RST rising to the first byte that is heard
constexpr BoardTime kTurnaround = kMillisecond;          // after a byte sent, until one can be heard
constexpr BoardTime kSegmentErase = 25 * kMillisecond;
constexpr BoardTime kLoaderRewrite = 2 * kSecond;

constexpr uint8_t kBusy = 0x42;

constexpr uint8_t kNoise[] = {0x13, 0x37, 0xC4};
constexpr size_t kVersionLength = 8;

std::vector<uint8_t> framed(std::span<const uint8_t> payload)
{
    const uint16_t crc = loader_crc(payload);
    const uint8_t head[] = {0x80, static_cast<uint8_t>(payload.size()), static_cast<uint8_t>(payload.size() >> 8)};
    std::vector<uint8_t> bytes;
    bytes.reserve(std::size(head) + payload.size() + sizeof crc);
    bytes.insert(bytes.end(), std::begin(head), std::end(head));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bytes.push_back(static_cast<uint8_t>(crc));
    bytes.push_back(static_cast<uint8_t>(crc >> 8));
    return bytes;
}

} // namespace

Microcontroller::Microcontroller() : ready_time_(3 * kSecond) {}

BoardTime Microcontroller::byte_time(uint32_t rate) const
{
    return paced_ ? kBitsPerByte * kSecond / rate : 0;
}

void Microcontroller::set_power(bool on, BoardTime now)
{
    if (on == (mode_ != Mode::kOff))
        return;
    incoming_.clear();
    outgoing_.clear();
    mode_ = Mode::kOff;
    if (on && rst_)
        start_application(now);
    else if (on)
        mode_ = Mode::kReset;
}

void Microcontroller::set_pins(bool test, bool rst, BoardTime now)
{
    const bool test_seen = now - test_since_ >= kShortestLevel;
    const bool rst_seen = now - rst_since_ >= kShortestLevel;
    if (rst_ && !rst) {
        test_pulses_ = 0;
        rst_since_ = now;
        incoming_.clear();
        outgoing_.clear();
        if (mode_ != Mode::kOff)
            mode_ = Mode::kReset;
    }
    if (!rst && test && !test_ && test_seen)
        ++test_pulses_;
    if (test != test_)
        test_since_ = now;
    test_ = test;

    const bool rises = rst && !rst_;
    rst_ = rst;
    if (!rises)
        return;
    rst_since_ = now;
    if (mode_ == Mode::kReset && rst_seen)
        leave_reset(now);
    else if (mode_ == Mode::kReset)
        start_application(now);
}

void Microcontroller::leave_reset(BoardTime now)
{
    silent_ = false;
    next_rate_ = 0;
    restarts_ = false;
    rate_ = kStartRate;
    if (!test_ || test_pulses_ < kEntryPulses) {
        start_application(now);
        return;
    }
    loader_.start();
    mode_ = Mode::kStarting;
    loader_at_ = now + kLoaderStart;
}

void Microcontroller::start_application(BoardTime now)
{
    silent_ = false;
    mode_ = Mode::kApplication;
    ready_at_ = now + ready_time_;
}

bool Microcontroller::application_ready(BoardTime now) const
{
    const auto version = flash_.read(version_address_, kVersionLength);
    const bool programmed = std::any_of(version.begin(), version.end(), [](uint8_t byte) { return byte != 0xFF; });
    return mode_ == Mode::kApplication && programmed && now >= ready_at_;
}

void Microcontroller::receive(std::span<const uint8_t> bytes, const LineFormat &format, BoardTime now)
{
    BoardTime when = incoming_.empty() ? now : std::max(now, incoming_.back().when);
    for (uint8_t byte : bytes) {
        when += byte_time(format.rate);
        incoming_.push_back({when, byte, format});
    }
}

std::optional<BoardTime> Microcontroller::next_event() const
{
    std::optional<BoardTime> next;
    if (!incoming_.empty())
        next = incoming_.front().when;
    if (!outgoing_.empty() && (!next || outgoing_.front().when < *next))
        next = outgoing_.front().when;
    return next;
}

std::vector<uint8_t> Microcontroller::advance(const LineFormat &format, BoardTime now)
{
    std::vector<uint8_t> out;
    for (;;) {
        const bool sends = !outgoing_.empty() && outgoing_.front().when <= now;
        const bool hears = !incoming_.empty() && incoming_.front().when <= now;
        if (sends && (!hears || outgoing_.front().when <= incoming_.front().when)) {
            const TimedByte sent = outgoing_.front();
            outgoing_.pop_front();
            last_sent_ = sent.when;
            // A host that listens at another rate sees no byte as it was meant.
            out.push_back(format == LineFormat{rate_, true} ? sent.byte : static_cast<uint8_t>(~sent.byte));
            finish_timers(sent.when);
        } else if (hears) {
            const TimedByte heard = incoming_.front();
            incoming_.pop_front();
            take_byte(heard);
        } else {
            return out;
        }
    }
}

// What the loader does once its answer is out.
void Microcontroller::finish_timers(BoardTime now)
{
    if (!outgoing_.empty())
        return;
    if (next_rate_ != 0)
        rate_ = std::exchange(next_rate_, 0);
    if (std::exchange(restarts_, false))
        start_application(now);
}

void Microcontroller::take_byte(const TimedByte &received)
{
    if (mode_ == Mode::kStarting && received.when >= loader_at_)
        mode_ = Mode::kLoader;
    if (mode_ != Mode::kLoader || silent_ || received.format != LineFormat{rate_, true})
        return;
    if (last_sent_ != 0 && received.when - byte_time(rate_) - last_sent_ < kTurnaround && last_sent_ <= received.when) {
        ++gap_violations_; // still busy with its own byte: this one goes unheard
        return;
    }
    if (const auto reply = loader_.feed(received.byte)) {
        ++packets_;
        commands_.push_back(reply->command);
        answer(*reply, received.when);
    }
}

const ArmedFault *Microcontroller::fault_for(AnswerPart part) const
{
    for (const ArmedFault &fault : faults_) {
        if (fault.packet == packets_ && fault.part == part)
            return &fault;
    }
    return nullptr;
}

void Microcontroller::answer(const LoaderReply &reply, BoardTime now)
{
    next_rate_ = reply.new_rate;
    restarts_ = reply.starts_application;
    if (const ArmedFault *fault = fault_for(AnswerPart::kAcknowledgement); fault && fault->kind == LinkFault::kLost)
        return;
    BoardTime end = send_part(AnswerPart::kAcknowledgement, {reply.acknowledgement}, now);
    if (reply.acknowledgement != 0 || reply.response.empty())
        return;
    if (reply.erases && paced_)
        end += kSegmentErase;
    send_part(AnswerPart::kResponse, framed(reply.response), end);
}

// Queues one part of an answer with the fault that is armed for it; returns when its last byte is out.
BoardTime Microcontroller::send_part(AnswerPart part, std::vector<uint8_t> bytes, BoardTime from)
{
    const ArmedFault *fault = fault_for(part);
    if (!fault)
        return send(bytes, from);
    switch (fault->kind) {
    case LinkFault::kLost: return from;
    case LinkFault::kLate: from += fault->delay; break;
    case LinkFault::kGarbled: bytes[bytes.size() / 2] ^= 0x24; break;
    case LinkFault::kSwappedCrc:
        if (bytes[bytes.size() - 1] == bytes[bytes.size() - 2])
            bytes[bytes.size() - 1] ^= 1; // a swap would not show
        std::swap(bytes[bytes.size() - 1], bytes[bytes.size() - 2]);
        break;
    case LinkFault::kWrongHeader: bytes[0] = 0x81; break;
    case LinkFault::kHugeLength: bytes[1] = bytes[2] = 0xFF; break;
    case LinkFault::kNoise: bytes.insert(bytes.end(), std::begin(kNoise), std::end(kNoise)); break;
    case LinkFault::kSilence: silent_ = true; return from;
    case LinkFault::kReset:
        bytes.resize(bytes.size() / 2);
        restarts_ = true;
        if (bytes.empty() && outgoing_.empty())
            finish_timers(from);
        break;
    }
    return send(bytes, from);
}

BoardTime Microcontroller::send(std::span<const uint8_t> bytes, BoardTime from)
{
    if (silent_ || mode_ != Mode::kLoader)
        return from;
    BoardTime when = outgoing_.empty() ? from : std::max(from, outgoing_.back().when);
    for (uint8_t byte : bytes) {
        when += byte_time(rate_);
        outgoing_.push_back({when, byte, {}});
    }
    return when;
}

std::optional<std::vector<uint8_t>> Microcontroller::message(uint8_t opcode, std::span<const uint8_t> sent,
                                                             BoardTime now)
{
    if (mode_ != Mode::kApplication)
        return std::nullopt;
    const bool ready = application_ready(now);
    if (opcode == kStatusQuery)
        return std::vector<uint8_t>{0x01, ready ? kReady : kBusy};
    if (opcode == kRewriteLoader && ready && std::ranges::equal(sent, kRewriteArguments)) {
        loader_.set_version(carried_loader_);
        ready_at_ = now + kLoaderRewrite;
    }
    return std::vector<uint8_t>{};
}

void Microcontroller::disarm()
{
    faults_.clear();
    packets_ = 0;
    commands_.clear();
}

} // namespace vboard
