#include "daemon/models/multiport_chip.h"

#include <cstdio>

#include "daemon/log.h"

namespace vboard {

namespace {

constexpr uint32_t kFirstPort = 0x10;
constexpr uint32_t kGlobal1 = 0x1B;
constexpr uint32_t kGlobal2 = 0x1C;
constexpr uint16_t kBusy = 0x8000;
constexpr uint16_t kNothing = 0xFFFF; // a bus without a device keeps its lines high

// How many accesses of the bus a command takes.
constexpr int kSharedTime = 2;
constexpr int kPhyTime = 5;
constexpr int kCountersTime = 4;

enum : uint32_t { kPortStatus = 0, kPortIdentifier = 3, kPortVlanMap = 6, kPortEtherType = 15 };
enum : uint32_t { kCountersCommand = 0x1D, kCountersHigh = 0x1E, kCountersLow = 0x1F, kPcpToQueue = 0x18 };
enum : uint32_t { kPhyCommand = 0x18, kPhyData = 0x19 };

uint32_t device_in(uint16_t word)
{
    return word >> 5 & 0x1F;
}

uint32_t register_in(uint16_t word)
{
    return word & 0x1F;
}

// Clause 22: 1 writes, 2 reads, anything else does nothing.
uint32_t operation_in(uint16_t word)
{
    return word & 1 << 12 ? word >> 10 & 3 : 0;
}

} // namespace

MultiportChip::MultiportChip(BoardClock clock)
{
    for (const uint32_t port : {3u, 4u})
        phys_.emplace(port, MultiportPhy{clock});
    for (uint32_t port = 0; port < kPorts; port++) {
        Port &each = ports_.at(port);
        each.registers[1] = 0x0003; // no speed is forced
        each.registers[4] = 0x007F; // IP and tag give the priority, floods pass, forwarding
        each.registers[kPortVlanMap] = static_cast<uint16_t>(0x7F & ~(1 << port));
        each.registers[kPortEtherType] = 0x9100;
    }
    global1_[kPcpToQueue] = 0xFA41;
    plug(6, 1000); // the SoC
}

MultiportPhy *MultiportChip::phy(uint32_t port)
{
    const auto found = phys_.find(port);
    return found == phys_.end() ? nullptr : &found->second;
}

void MultiportChip::plug(uint32_t port, uint32_t fastest)
{
    if (MultiportPhy *const its = phy(port))
        its->plug(fastest);
    else
        ports_.at(port).fastest = fastest;
}

void MultiportChip::step(Command &command, const std::string &unit, void (MultiportChip::*act)(uint16_t))
{
    if (command.left == 0 || jammed_[unit])
        return;
    if (--command.left == 0)
        (this->*act)(command.word);
}

void MultiportChip::pass_time()
{
    step(shared_, "bus", &MultiportChip::act_shared);
    step(phy_, "phy", &MultiportChip::act_phy);
    step(counters_, "counters", &MultiportChip::act_counters);
}

uint16_t MultiportChip::shown(const Command &command) const
{
    const uint16_t word = command.word & static_cast<uint16_t>(~kBusy);
    return command.left != 0 ? word | kBusy : word;
}

// A command that runs keeps a further one out.
void MultiportChip::issue(Command &command, uint16_t word, int accesses)
{
    if (command.left != 0)
        return;
    command.word = word;
    command.left = word & kBusy ? accesses : 0;
}

std::optional<uint16_t> MultiportChip::read(uint32_t address, uint32_t reg)
{
    pass_time();
    if (strap_ == 0)
        return device_read(address, reg);
    if (address != strap_)
        return {};
    return reg == 0 ? shown(shared_) : reg == 1 ? shared_data_ : kNothing;
}

bool MultiportChip::write(uint32_t address, uint32_t reg, uint16_t value)
{
    pass_time();
    if (strap_ == 0) {
        device_write(address, reg, value);
        return true;
    }
    if (address != strap_)
        return false;
    if (reg == 0)
        issue(shared_, value, kSharedTime);
    else if (reg == 1)
        shared_data_ = value;
    return true;
}

void MultiportChip::act_shared(uint16_t word)
{
    if (operation_in(word) == 1)
        device_write(device_in(word), register_in(word), shared_data_);
    else if (operation_in(word) == 2)
        shared_data_ = device_read(device_in(word), register_in(word));
}

void MultiportChip::act_phy(uint16_t word)
{
    const uint32_t reg = register_in(word);
    MultiportPhy *const its = phy(device_in(word));
    if (operation_in(word) == 1 && its) {
        note("write", device_in(word), reg, its->page(), phy_data_);
        its->write(reg, phy_data_);
    } else if (operation_in(word) == 2) {
        const uint16_t page = its ? its->page() : 0;
        phy_data_ = its ? its->read(reg) : kNothing;
        if (its)
            note("read", device_in(word), reg, page, phy_data_);
    }
}

void MultiportChip::act_counters(uint16_t word)
{
    const uint32_t port = (word >> 5 & 0x1F) - 1; // this family counts the ports from 1
    switch (word >> 12 & 7) {
    case 1:
        for (Port &each : ports_)
            each.counters = {};
        break;
    case 2:
        if (port < kPorts)
            ports_[port].counters = {};
        break;
    case 4: counter_ = word & 1 << 9 ? 0 : captured_[word & 0x1F]; break;
    case 5: captured_ = port < kPorts ? ports_[port].counters : std::array<uint32_t, 32>{}; break;
    default: break;
    }
}

uint16_t MultiportChip::port_status(uint32_t port) const
{
    const MultiportPhy *const its = phy(port);
    const uint32_t fastest = ports_[port].fastest;
    const bool link = its ? its->has_link() : fastest != 0;
    auto word = static_cast<uint16_t>(its ? 1 << 12 : 0x9);
    if (!link)
        return word;
    const uint32_t speed = its ? its->speed() : fastest;
    const bool full = !its || its->is_full_duplex();
    word = static_cast<uint16_t>(word | 1 << 11 | (speed == 1000 ? 2 : speed == 100 ? 1 : 0) << 8);
    return static_cast<uint16_t>(word | (full ? 1 << 10 : 0));
}

uint16_t MultiportChip::port_read(uint32_t port, uint32_t reg) const
{
    if (reg == kPortStatus)
        return port_status(port);
    return reg == kPortIdentifier ? identifier_ : ports_[port].registers[reg];
}

uint16_t MultiportChip::device_read(uint32_t device, uint32_t reg) const
{
    if (device - kFirstPort < kPorts)
        return port_read(device - kFirstPort, reg);
    if (device == kGlobal1) {
        switch (reg) {
        case kCountersCommand: return shown(counters_);
        case kCountersHigh: return static_cast<uint16_t>(counter_ >> 16);
        case kCountersLow: return static_cast<uint16_t>(counter_);
        default: return global1_[reg];
        }
    }
    if (device == kGlobal2)
        return reg == kPhyCommand ? shown(phy_) : reg == kPhyData ? phy_data_ : global2_[reg];
    return kNothing; // the PHYs answer through global 2 alone
}

void MultiportChip::device_write(uint32_t device, uint32_t reg, uint16_t value)
{
    if (device - kFirstPort < kPorts) {
        const bool counts = reg >= 0x10 && reg <= 0x13;
        if (reg != kPortStatus && reg != kPortIdentifier && !counts)
            ports_[device - kFirstPort].registers[reg] = value;
    } else if (device == kGlobal1) {
        if (reg == kCountersCommand)
            issue(counters_, value, kCountersTime);
        else
            global1_[reg] = value;
    } else if (device == kGlobal2) {
        if (reg == kPhyCommand)
            issue(phy_, value, kPhyTime);
        else if (reg == kPhyData)
            phy_data_ = value;
        else
            global2_[reg] = value;
    }
}

void MultiportChip::note(const char *what, uint32_t port, uint32_t reg, uint16_t page, uint16_t value)
{
    char line[64];
    snprintf(line, sizeof line, "phy %u %s %u.%u = 0x%04x", port, what, reg == 22 ? 0u : page, reg, value);
    keep_line(log_, line);
}

} // namespace vboard
