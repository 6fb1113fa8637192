// Copper PHYs: registers in pages, bits that clear themselves, two makers.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "daemon/model.h"

namespace vboard {

class Phy {
public:
    enum class Maker { kMarvell, kAtheros };

    explicit Phy(Maker maker = Maker::kMarvell);

    uint16_t read(uint32_t page, uint32_t reg) const;
    void write(uint32_t page, uint32_t reg, uint16_t value);

    // As a management bus sees it: register 22 selects the page of all others.
    uint16_t read_selected(uint32_t reg) const;
    void write_selected(uint32_t reg, uint16_t value);

    // A partner at the other end of the cable; a PHY that is powered down or held in reset has no link either way.
    void plug(bool partner);
    bool has_link() const;

    void hold_in_reset(bool held) { held_ = held; }
    bool is_held() const { return held_; }
    bool is_full_duplex() const;
    uint32_t speed() const; // Mb/s

    // "read <page>.<reg> = <value>" and "write ..." since the last call, one a line.
    std::string take_log();

    // get <reg> [page] | set <reg> <value> [page] | plug on|off | log
    std::string control(const Words &words);

private:
    using Place = std::pair<uint32_t, uint32_t>; // page, register
    uint16_t stored(uint32_t page, uint32_t reg) const;
    uint16_t status() const;          // register 1
    uint16_t specific_status() const; // register 17 of a Marvell PHY

    Maker maker_;
    std::map<Place, uint16_t> registers_;
    std::map<uint32_t, uint16_t> extended_; // device << 16 | register, behind registers 13 and 14
    uint16_t page_ = 0;
    bool partner_ = true;
    bool held_ = false;
    mutable std::string log_;
};

// The PHYs of the SoC's management buses: one phy_regs node each, and the CPLD lines that hold them in reset.
class PhyNodes : public Model {
public:
    using Model::Model;
    void start() override;
    int read(const Node &node, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &node, uint64_t offset, std::span<const uint8_t> in) override;

    // <bus id> maker marvell|atheros, or a command of the PHY; "list" names the bus ids.
    std::string control(const Words &words) override;

    // The cable at the SoC port of an interface.
    void plug(uint32_t dev_id, bool partner);

private:
    void drive_reset_line(const Node &node, bool held);

    std::map<std::string, Phy> phys_; // by bus id, "2090300.mdio:00"
};

} // namespace vboard
