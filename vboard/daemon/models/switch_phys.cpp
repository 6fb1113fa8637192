// PHYs of the switch model: plain registers, and those of the 2.5G PHY in its clause-45 space.
#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr int64_t kMirrored = 0x7FFE0; // standard registers of the 2.5G PHY in its clause-45 space

// The register that flags, port and number of a PHY access mean. False: nobody answers there.
struct PhyPlace {
    int mdio;
    uint32_t reg;
    bool mirrored;
};

int place_of(const SwitchWords &in, PhyPlace *place)
{
    const auto flags = static_cast<uint32_t>(in[2]);
    if (flags == BCM_PORT_PHY_NOMAP) {
        *place = {static_cast<int>(in[1]), static_cast<uint32_t>(in[3]), false};
        return !is_within(in[3], 31) ? kParameter : is_within(in[1], 1) ? 0 : kTimeOut;
    }
    if (flags == BCM_PORT_PHY_CLAUSE45) {
        *place = {kMultiGigabitMdio, static_cast<uint32_t>(in[3] - kMirrored), true};
        return in[1] != kMultiGigabitPort ? kUnavailable : is_within(in[3] - kMirrored, 31) ? 0 : kParameter;
    }
    return kParameter;
}

} // namespace

SwitchWords Switch::phy_get(const SwitchWords &in)
{
    PhyPlace place{};
    if (const int code = place_of(in, &place))
        return failed(code);
    const Phy &phy = phys_[static_cast<size_t>(place.mdio)];
    if (phy.is_held())
        return failed(kTimeOut);
    return done({place.mirrored ? phy.read(0, place.reg) : phy.read_selected(place.reg)});
}

SwitchWords Switch::phy_set(const SwitchWords &in)
{
    PhyPlace place{};
    if (const int code = place_of(in, &place))
        return failed(code);
    Phy &phy = phys_[static_cast<size_t>(place.mdio)];
    if (phy.is_held())
        return failed(kTimeOut);
    const auto value = static_cast<uint16_t>(in[4]);
    if (place.mirrored)
        phy.write(0, place.reg, value);
    else
        phy.write_selected(place.reg, value);
    for (const CopperPort &copper : kCopperPorts) {
        if (copper.mdio != place.mdio || copper.port == kMultiGigabitPort)
            continue;
        ports_.at(copper.port).speed = phy.speed();
        ports_.at(copper.port).duplex = phy.is_full_duplex();
    }
    settle_ports_of(&phy);
    return done();
}

SwitchWords Switch::phy_modify(const SwitchWords &in)
{
    SwitchWords old = phy_get(in);
    if (old[0] != 0)
        return old;
    SwitchWords change = in;
    change[4] = (old[1] & ~in[5]) | (in[4] & in[5]);
    return phy_set(change);
}

SwitchWords Switch::master_get(const SwitchWords &in)
{
    const Phy *phy = phy_of(in[1]);
    if (!phy)
        return failed(port_of(in[1]) ? kUnavailable : kPort);
    const uint16_t control = phy->read(0, 9);
    return done({!(control & 0x1000) ? BCM_PORT_MS_AUTO : control & 0x0800 ? BCM_PORT_MS_MASTER : BCM_PORT_MS_SLAVE});
}

SwitchWords Switch::master_set(const SwitchWords &in)
{
    Phy *phy = phy_of(in[1]);
    if (!phy)
        return failed(port_of(in[1]) ? kUnavailable : kPort);
    if (!is_within(in[2], BCM_PORT_MS_AUTO))
        return failed(kParameter);
    const int bits = in[2] == BCM_PORT_MS_AUTO ? 0 : in[2] == BCM_PORT_MS_MASTER ? 0x1800 : 0x1000;
    phy->write(0, 9, static_cast<uint16_t>((phy->read(0, 9) & ~0x1800) | bits));
    return done();
}

} // namespace vboard
