#include "daemon/models/multiport.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <linux/mii.h>
#include <linux/sockios.h>

#include "daemon/board.h"

namespace vboard {

namespace {

// ".../devices/2090300.mdio:1b/phy_regs" is at address 0x1B.
uint32_t address_of(const Node &node)
{
    const std::string path = node.path;
    return static_cast<uint32_t>(strtoul(path.c_str() + path.rfind(':') + 1, nullptr, 16));
}

bool is_register(uint64_t offset, size_t length)
{
    return length == sizeof(uint16_t) && offset % 2 == 0 && offset / 2 < 32;
}

std::string hex_word(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof text, "0x%04x", value);
    return text;
}

} // namespace

Multiport::Multiport(Board &board) : Model(board), chip_([this] { return this->board().monotonic_ns(); }) {}

int Multiport::read(const Node &node, uint64_t offset, std::span<uint8_t> out)
{
    if (!is_register(offset, out.size()))
        return -EINVAL;
    const auto value = fitted_ ? chip_.read(address_of(node), static_cast<uint32_t>(offset / 2)) : std::nullopt;
    if (!value)
        return -EIO;
    memcpy(out.data(), &*value, sizeof *value);
    return sizeof *value;
}

int Multiport::write(const Node &node, uint64_t offset, std::span<const uint8_t> in)
{
    if (!is_register(offset, in.size()))
        return -EINVAL;
    uint16_t value = 0;
    memcpy(&value, in.data(), sizeof value);
    if (!fitted_ || !chip_.write(address_of(node), static_cast<uint32_t>(offset / 2), value))
        return -EIO;
    return sizeof value;
}

int Multiport::request(const std::string &interface, uint32_t number, InterfaceRequest &request)
{
    mii_ioctl_data registers;
    memcpy(&registers, request.record, sizeof registers);
    if (interface != owner_)
        return -EOPNOTSUPP;
    if (registers.phy_id >= 32 || registers.reg_num >= 32)
        return -EINVAL;
    if (!fitted_)
        return -EIO;
    if (number == SIOCSMIIREG)
        return chip_.write(registers.phy_id, registers.reg_num, registers.val_in) ? 0 : -EIO;
    const auto value = chip_.read(registers.phy_id, registers.reg_num);
    if (!value)
        return -EIO;
    registers.val_out = *value;
    memcpy(request.record, &registers, sizeof registers);
    return 0;
}

void Multiport::plug(uint32_t port, bool partner)
{
    if (port >= MultiportChip::kPorts)
        throw ControlError("the switch has no port " + std::to_string(port));
    chip_.plug(port, partner ? 1000 : 0);
}

std::string Multiport::show() const
{
    std::string text = fitted_ ? "address " + std::to_string(chip_.strap()) + " on " + owner_ + "\n" : "not fitted\n";
    for (uint32_t port = 0; port < MultiportChip::kPorts; port++) {
        text += std::to_string(port) + " status " + hex_word(chip_.peek(0x10 + port, 0)) + " ports " +
                hex_word(chip_.peek(0x10 + port, 6));
        const MultiportPhy *const phy = chip_.phy(port);
        text += phy ? " " + phy->text() + "\n" : "\n";
    }
    return text;
}

ControlTable Multiport::commands()
{
    using Row = ControlRow<Multiport>;
    const auto port_in = [](const Given &given) {
        const auto port = given.number("PORT");
        if (port >= MultiportChip::kPorts)
            throw ControlError("ports are numbered from 0 to 6");
        return port;
    };
    return {
        Row{"show", "print the address, and state and VLAN map of each port", &Multiport::show},
        Row{"fitted on|off", "change whether the board has the switch",
            [](Multiport &all, const Given &given) { all.fitted_ = given.says("on"); }},
        Row{"strap ADDRESS", "change the address of the bus; 0 lets the switch answer at every address",
            [](Multiport &all, const Given &given) { all.chip_.strap(given.number("ADDRESS") & 0x1E); }},
        Row{"owner NAME", "change the interface that owns the bus",
            [](Multiport &all, const Given &given) { all.owner_ = given.text("NAME"); }},
        Row{"identifier VALUE", "change the identifier that every port reports",
            [](Multiport &all, const Given &given) { all.chip_.set_identifier(given.number<uint16_t>("VALUE")); }},
        Row{"jam bus|phy|counters on|off", "keep a command register busy, or let it go",
            [](Multiport &all, const Given &given) {
                for (const char *unit : {"bus", "phy", "counters"})
                    if (given.says(unit))
                        all.chip_.jam(unit, given.says("on"));
            }},
        Row{"plug PORT VALUE", "plug a partner that offers speeds up to so many Mb/s; 0 pulls the cable",
            [port_in](Multiport &all, const Given &given) { all.chip_.plug(port_in(given), given.number("VALUE")); }},
        Row{"count PORT NUMBER VALUE", "change a counter of a port, by its number",
            [port_in](Multiport &all, const Given &given) {
                all.chip_.count(port_in(given), given.number("NUMBER") & 0x1F, given.number("VALUE"));
            }},
        Row{"get PORT REGISTER", "print a register of a port",
            [port_in](Multiport &all, const Given &given) {
                return hex_word(all.chip_.peek(0x10 + port_in(given), given.number("REGISTER") & 0x1F)) + "\n";
            }},
        Row{"set PORT REGISTER VALUE", "change a register of a port, as its hardware would",
            [port_in](Multiport &all, const Given &given) {
                all.chip_.poke(0x10 + port_in(given), given.number("REGISTER") & 0x1F, given.number<uint16_t>("VALUE"));
            }},
        Row{"log", "print the accesses to the PHYs since the last time, one a line",
            [](Multiport &all) { return all.chip_.take_log(); }},
    };
}

} // namespace vboard
