#include "ddalctl/phy_registers.h"

#include <linux/mii.h>
#include <span>

namespace ddalctl {

namespace {

struct Bit {
    uint16_t mask;
    const char *name;
};

constexpr Bit kControl[] = {
    {BMCR_RESET, "reset"},
    {BMCR_LOOPBACK, "loopback"},
    {BMCR_SPEED100, "speed 100"},
    {BMCR_ANENABLE, "auto-negotiation"},
    {BMCR_PDOWN, "power-down"},
    {BMCR_ISOLATE, "isolate"},
    {BMCR_ANRESTART, "restart auto-negotiation"},
    {BMCR_FULLDPLX, "full duplex"},
    {BMCR_CTST, "collision test"},
    {BMCR_SPEED1000, "speed 1000"},
};
constexpr Bit kStatus[] = {
    {BMSR_100BASE4, "100BASE-T4"},      {BMSR_100FULL, "100 full"},
    {BMSR_100HALF, "100 half"},         {BMSR_10FULL, "10 full"},
    {BMSR_10HALF, "10 half"},           {BMSR_100FULL2, "100BASE-T2 full"},
    {BMSR_100HALF2, "100BASE-T2 half"}, {BMSR_ESTATEN, "extended status"},
    {0x0040, "preamble suppression"},   {BMSR_ANEGCOMPLETE, "auto-negotiation complete"},
    {BMSR_RFAULT, "remote fault"},      {BMSR_ANEGCAPABLE, "auto-negotiation able"},
    {BMSR_LSTATUS, "link up"},          {BMSR_JCD, "jabber"},
    {BMSR_ERCAP, "extended registers"},
};
constexpr Bit kAbilities[] = {
    {ADVERTISE_NPAGE, "next page"},     {ADVERTISE_LPACK, "acknowledge"},
    {ADVERTISE_RFAULT, "remote fault"}, {ADVERTISE_PAUSE_ASYM, "asymmetric pause"},
    {ADVERTISE_PAUSE_CAP, "pause"},     {ADVERTISE_100BASE4, "100BASE-T4"},
    {ADVERTISE_100FULL, "100 full"},    {ADVERTISE_100HALF, "100 half"},
    {ADVERTISE_10FULL, "10 full"},      {ADVERTISE_10HALF, "10 half"},
};
constexpr Bit kExpansion[] = {
    {EXPANSION_MFAULTS, "parallel detection fault"},
    {EXPANSION_NPCAPABLE, "partner next page able"},
    {0x0004, "next page able"},
    {EXPANSION_LCWP, "page received"},
    {EXPANSION_NWAY, "partner auto-negotiation able"},
};
constexpr Bit kGigabitControl[] = {
    {CTL1000_ENABLE_MASTER, "manual clock role"},
    {CTL1000_AS_MASTER, "master"},
    {0x0400, "multi-port"},
    {ADVERTISE_1000FULL, "1000 full"},
    {ADVERTISE_1000HALF, "1000 half"},
};
constexpr Bit kGigabitStatus[] = {
    {LPA_1000MSFAIL, "clock role fault"}, {LPA_1000MSRES, "master"},           {LPA_1000LOCALRXOK, "local receiver"},
    {LPA_1000REMRXOK, "remote receiver"}, {LPA_1000FULL, "partner 1000 full"}, {LPA_1000HALF, "partner 1000 half"},
};
constexpr Bit kExtendedStatus[] = {
    {0x8000, "1000BASE-X full"},
    {0x4000, "1000BASE-X half"},
    {ESTATUS_1000_TFULL, "1000BASE-T full"},
    {ESTATUS_1000_THALF, "1000BASE-T half"},
};

struct Register {
    uint32_t number;
    const char *name;
    std::span<const Bit> bits;
};
constexpr Register kRegisters[] = {
    {MII_BMCR, "basic control", kControl},
    {MII_BMSR, "basic status", kStatus},
    {MII_PHYSID1, "identifier, upper half", {}},
    {MII_PHYSID2, "identifier, lower half", {}},
    {MII_ADVERTISE, "advertised abilities", kAbilities},
    {MII_LPA, "partner's abilities", kAbilities},
    {MII_EXPANSION, "auto-negotiation expansion", kExpansion},
    {MII_CTRL1000, "1000BASE-T control", kGigabitControl},
    {MII_STAT1000, "1000BASE-T status", kGigabitStatus},
    {MII_ESTATUS, "extended status", kExtendedStatus},
};

const Register *find(uint32_t number)
{
    for (const Register &row : kRegisters) {
        if (row.number == number)
            return &row;
    }
    return nullptr;
}

} // namespace

std::string phy_register_name(uint32_t number)
{
    const Register *found = find(number);
    return found ? found->name : "";
}

std::vector<std::string> phy_register_bits(uint32_t number, uint16_t value)
{
    std::vector<std::string> names;
    if (const Register *found = find(number)) {
        for (const Bit &bit : found->bits) {
            if (value & bit.mask)
                names.emplace_back(bit.name);
        }
    }
    return names;
}

} // namespace ddalctl
