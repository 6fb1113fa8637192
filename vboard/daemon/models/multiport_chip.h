// The external multiport switch as its management bus sees it: an 88E6320 or 88E6321.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "daemon/models/multiport_phy.h"

namespace vboard {

class MultiportChip {
public:
    static constexpr uint32_t kPorts = 7;

    explicit MultiportChip(BoardClock clock);

    // One access at an address of the bus. Nothing, or false, where no device answers.
    std::optional<uint16_t> read(uint32_t address, uint32_t reg);
    bool write(uint32_t address, uint32_t reg, uint16_t value);

    // Strap pins: 0, or the one address of a chip that shares its bus.
    void strap(uint32_t address) { strap_ = address; }
    uint32_t strap() const { return strap_; }
    void set_identifier(uint16_t identifier) { identifier_ = identifier; }
    // A command register that stays busy: "bus", "phy" or "counters".
    void jam(const std::string &unit, bool on) { jammed_[unit] = on; }

    // The PHY of port 3 or 4; null for the other ports.
    MultiportPhy *phy(uint32_t port);
    const MultiportPhy *phy(uint32_t port) const { return const_cast<MultiportChip *>(this)->phy(port); }
    void plug(uint32_t port, uint32_t fastest);
    void count(uint32_t port, uint32_t counter, uint32_t value) { ports_.at(port).counters.at(counter) = value; }
    // A register of a device, without the bus.
    uint16_t peek(uint32_t device, uint32_t reg) const { return device_read(device, reg); }
    void poke(uint32_t device, uint32_t reg, uint16_t value) { ports_.at(device - 0x10).registers.at(reg) = value; }

    // "phy 3 write 0.16 = 0x1140" for each access to a PHY register since the last call, one a line.
    std::string take_log() { return std::exchange(log_, {}); }

private:
    // A command register: runs for some accesses of the bus, then acts.
    struct Command {
        uint16_t word = 0;
        int left = 0;
    };
    struct Port {
        std::array<uint16_t, 32> registers{};
        std::array<uint32_t, 32> counters{};
        uint32_t fastest = 0; // of a port without a PHY
    };

    void pass_time();
    void step(Command &command, const std::string &unit, void (MultiportChip::*act)(uint16_t));
    uint16_t shown(const Command &command) const;
    void issue(Command &command, uint16_t word, int accesses);
    void act_shared(uint16_t word);
    void act_phy(uint16_t word);
    void act_counters(uint16_t word);
    uint16_t device_read(uint32_t device, uint32_t reg) const;
    void device_write(uint32_t device, uint32_t reg, uint16_t value);
    uint16_t port_status(uint32_t port) const;
    uint16_t port_read(uint32_t port, uint32_t reg) const;
    void note(const char *what, uint32_t port, uint32_t reg, uint16_t page, uint16_t value);

    uint32_t strap_ = 0;
    uint16_t identifier_ = 0x3101; // 88E6321, revision 1
    std::map<uint32_t, MultiportPhy> phys_;
    std::array<Port, kPorts> ports_;
    std::array<uint32_t, 32> captured_{};
    uint32_t counter_ = 0; // in the data registers
    Command shared_, phy_, counters_;
    uint16_t shared_data_ = 0;
    uint16_t phy_data_ = 0;
    std::array<uint16_t, 32> global1_{};
    std::array<uint16_t, 32> global2_{};
    std::map<std::string, bool> jammed_;
    std::string log_;
};

} // namespace vboard
