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

    // Registers that were written, as "<page>.<reg> = <value>", one a line.
    std::string text() const;

    // Commands of an owner of PHYs: `prefix` is how they name one, and `at` finds it for the words.
    template <typename Owner, typename At>
    static ControlTable commands(const std::string &prefix, At at);

private:
    using Place = std::pair<uint32_t, uint32_t>; // page, register
    std::string peek(uint32_t page, uint32_t reg) const;
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

template <typename Owner, typename At>
ControlTable Phy::commands(const std::string &prefix, At at)
{
    using Row = ControlRow<Owner>;
    return {
        Row{prefix + " get REGISTER [PAGE]", "print a register of a PHY",
            [at](Owner &owner, const Given &given) {
                return at(owner, given).peek(given.number_or("PAGE", 0u), given.number("REGISTER"));
            }},
        Row{prefix + " set REGISTER VALUE [PAGE]", "change a register of a PHY, as its hardware would",
            [at](Owner &owner, const Given &given) {
                const Place place{given.number_or("PAGE", 0u), given.number("REGISTER")};
                at(owner, given).registers_[place] = given.number<uint16_t>("VALUE");
            }},
        Row{prefix + " plug on|off", "plug or pull the cable of a PHY",
            [at](Owner &owner, const Given &given) { at(owner, given).plug(given.says("on")); }},
        Row{prefix + " log", "print the accesses to a PHY since the last time, one a line",
            [at](Owner &owner, const Given &given) { return at(owner, given).take_log(); }},
    };
}

// The PHYs of the SoC's management buses: one phy_regs node each, and the CPLD lines that hold them in reset.
class PhyNodes : public Model {
public:
    using Model::Model;
    void start() override;
    int read(const Node &node, uint64_t offset, std::span<uint8_t> out) override;
    int write(const Node &node, uint64_t offset, std::span<const uint8_t> in) override;

    static ControlTable commands();

    // The cable at the SoC port of an interface.
    void plug(uint32_t dev_id, bool partner);

private:
    void drive_reset_line(const Node &node, bool held);
    Phy &phy_in(const Given &given);
    std::string list() const;

    std::map<std::string, Phy> phys_; // by bus id, "2090300.mdio:00"
};

} // namespace vboard
