#include "daemon/models/multiport_phy.h"

namespace vboard {

namespace {

constexpr int64_t kNegotiationNs = 1'500'000'000;
constexpr int64_t kLoopbackNs = 1'000'000'000; // between a reset and loopback at 1000 Mb/s

constexpr uint32_t kSelect = 22;
constexpr uint16_t kMacPage = 2;
constexpr uint32_t kMacSpeed = 21;

enum : uint32_t {
    kControl = 0,
    kStatus = 1,
    kPartner = 5,
    kGigabit = 9,
    kGigabitStatus = 10,
    kCopper = 16,
    kLive = 17
};

constexpr uint16_t kReset = 1 << 15;
constexpr uint16_t kLoop = 1 << 14;
constexpr uint16_t kAutoneg = 1 << 12;
constexpr uint16_t kDown = 1 << 11;
constexpr uint16_t kRestart = 1 << 9;
constexpr uint16_t kFull = 1 << 8;
constexpr uint16_t kSpeedMask = 1 << 13 | 1 << 6;
constexpr uint16_t kMdiMask = 3 << 5;

uint32_t speed_in(uint16_t word)
{
    return word & 1 << 6 ? 1000 : word & 1 << 13 ? 100 : 10;
}

// The modes that a PHY can advertise, the best first.
struct Mode {
    uint32_t speed;
    bool full;
    uint32_t reg;
    uint16_t bit;
};
constexpr Mode kModes[] = {{1000, true, 9, 1 << 9}, {1000, false, 9, 1 << 8}, {100, true, 4, 1 << 8},
                           {100, false, 4, 1 << 7}, {10, true, 4, 1 << 6},    {10, false, 4, 1 << 5}};

} // namespace

MultiportPhy::MultiportPhy(BoardClock clock) : clock_(std::move(clock))
{
    Page &copper = pages_[0];
    copper[kControl] = kAutoneg | kFull | 1 << 6;
    copper[kStatus] = 0x7949; // what it can do
    copper[2] = 0x0141;       // the maker
    copper[3] = 0x0C00;
    copper[4] = 0x01E1;
    copper[kGigabit] = 0x0300;
    copper[kCopper] = kMdiMask;
    pages_[kMacPage][kMacSpeed] = 1 << 6;
    apply_reset();
    result_at_ -= kNegotiationNs; // the board is not new: its links are up
    reset_at_ -= kLoopbackNs;
}

uint16_t MultiportPhy::copper(uint32_t reg) const
{
    return pages_.at(0)[reg];
}

void MultiportPhy::apply_reset()
{
    crossover_ = copper(kCopper) & kMdiMask;
    loop_speed_ = static_cast<uint16_t>(speed_in(pages_[kMacPage][kMacSpeed]));
    reset_at_ = clock_();
    loops_ = false;
    lose_link();
}

void MultiportPhy::lose_link()
{
    lost_ = true;
    result_at_ = clock_() + kNegotiationNs;
}

void MultiportPhy::plug(uint32_t fastest)
{
    fastest_ = fastest;
    lose_link();
}

uint32_t MultiportPhy::common_mode() const
{
    for (const Mode &mode : kModes)
        if (mode.speed <= fastest_ && copper(mode.reg) & mode.bit)
            return mode.speed + mode.full;
    return 0;
}

bool MultiportPhy::has_result() const
{
    return copper(kControl) & kAutoneg && !(copper(kControl) & kDown) && common_mode() != 0 && clock_() >= result_at_;
}

bool MultiportPhy::has_link() const
{
    if (copper(kControl) & kAutoneg)
        return has_result();
    return !(copper(kControl) & kDown) && speed_in(copper(kControl)) <= fastest_;
}

uint32_t MultiportPhy::speed() const
{
    return copper(kControl) & kAutoneg ? common_mode() / 10 * 10 : speed_in(copper(kControl));
}

bool MultiportPhy::is_full_duplex() const
{
    return copper(kControl) & kAutoneg ? common_mode() % 10 : (copper(kControl) & kFull) != 0;
}

uint16_t MultiportPhy::status()
{
    const bool link = has_link();
    const bool shown = link && !lost_;
    lost_ = !link;
    return static_cast<uint16_t>(copper(kStatus) | (has_result() ? 1 << 5 : 0) | (shown ? 1 << 2 : 0));
}

uint16_t MultiportPhy::live_status() const
{
    uint16_t word = crossover_ == 1 << 5 ? 1 << 6 : 0;
    if (!has_link())
        return word;
    const uint32_t code = speed() == 1000 ? 2 : speed() == 100 ? 1 : 0;
    word = static_cast<uint16_t>(word | code << 14 | 1 << 11 | 1 << 10);
    return static_cast<uint16_t>(word | (is_full_duplex() ? 1 << 13 : 0));
}

uint16_t MultiportPhy::partner_ability() const
{
    if (!has_result())
        return 0;
    return static_cast<uint16_t>(1 << 14 | 1 << 10 | (fastest_ >= 100 ? 0x180 : 0) | 0x61);
}

uint16_t MultiportPhy::gigabit_status() const
{
    if (!has_result() || fastest_ < 1000)
        return 0;
    const uint16_t manual = copper(kGigabit) & (1 << 12 | 1 << 11);
    return static_cast<uint16_t>(1 << 11 | 1 << 10 | (manual == (1 << 12 | 1 << 11) ? 1 << 14 : 0));
}

uint16_t MultiportPhy::read(uint32_t reg)
{
    if (reg == kSelect)
        return page_;
    if (page_ != 0)
        return pages_[page_][reg];
    switch (reg) {
    case kStatus: return status();
    case kPartner: return partner_ability();
    case kGigabitStatus: return gigabit_status();
    case kLive: return live_status();
    default: return copper(reg);
    }
}

void MultiportPhy::write_control(uint16_t value)
{
    const uint16_t old = copper(kControl);
    const uint16_t changed = old ^ value;
    pages_[0][kControl] = value & static_cast<uint16_t>(~(kReset | kRestart));
    if (value & kReset)
        apply_reset();
    if (value & kRestart || changed & (kAutoneg | kDown) || (changed & (kSpeedMask | kFull) && !(value & kAutoneg)))
        lose_link();
    if (!(value & kLoop))
        loops_ = false;
    else if (changed & kLoop)
        loops_ = loop_speed_ < 1000 || clock_() - reset_at_ >= kLoopbackNs;
}

void MultiportPhy::write_copper(uint32_t reg, uint16_t value)
{
    const bool fixed =
        reg == kStatus || reg == 2 || reg == 3 || reg == kPartner || reg == kGigabitStatus || reg == kLive;
    if (reg == kControl)
        write_control(value);
    else if (!fixed)
        pages_[0][reg] = value;
}

void MultiportPhy::write(uint32_t reg, uint16_t value)
{
    if (reg == kSelect)
        page_ = value & 0xFF;
    else if (page_ == 0)
        write_copper(reg, value);
    else
        pages_[page_][reg] = value;
}

std::string MultiportPhy::text() const
{
    std::string text = fastest_ == 0 ? "no cable" : "cable " + std::to_string(fastest_);
    text += has_link() ? " link " + std::to_string(speed()) + (is_full_duplex() ? " full" : " half") : " no-link";
    text += " page " + std::to_string(page_) + " crossover " + std::to_string(crossover_ >> 5);
    return text + (loops_ ? " loops" : "");
}

} // namespace vboard
