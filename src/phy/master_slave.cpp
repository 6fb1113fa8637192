// Clock role of copper PHYs at 1000 Mb/s.
#include <ddal/bcm.h>
#include <ddal/phy.h>

#include <cerrno>

#include "core/log.h"
#include "phy/interface_control.h"
#include "phy/registers.h"
#include "phy/route.h"

using namespace ddal::phy;

namespace {

using enum Needs;
using enum Rule;

constexpr uint16_t kManual = 0x1000;
constexpr uint16_t kMaster = 0x0800;
constexpr uint16_t kMultiPort = 0x0400;
constexpr uint16_t kResolvedMaster = 0x4000;
constexpr uint16_t kKeepInExpansion = 0xFFFD;

constexpr const char *kReappliedInterface = "eth0"; // kept: for every PHY device

struct Mode {
    uint32_t mode;
    uint16_t clear;
    uint16_t set;
};

constexpr Mode kModes[] = {
    {0, kMaster, kManual}, {1, 0, kManual | kMaster}, {2, kManual, 0}, {4, 0, kMultiPort}, {8, kMultiPort, 0},
};

const Mode *find_mode(uint32_t mode)
{
    for (const Mode &row : kModes) {
        if (row.mode == mode)
            return &row;
    }
    return nullptr;
}

// clang-format off
constexpr Served kGetRole{{"copper get master slave", nullptr, kCachedType, kCopper, "is_master"},
                          ddal_bcm_get_master_slave, nullptr};
constexpr Served kSetRole{{"copper set master slave", nullptr, kCachedType, kCopper},
                          ddal_bcm_set_master_slave, nullptr};
constexpr Served kGetRoleConfiguration{{"copper get master slave configuration", nullptr, kCachedType, kCopper, "config"},
                                       ddal_bcm_get_master_slave_configuration, nullptr};
// clang-format on

// Changes the role, resets the PHY and lets the kernel apply its settings again.
int apply_mode(uint32_t phy_dev, const Mode &mode)
{
    uint16_t gigabit = 0;
    int rc = ddal_phy_read(phy_dev, kGigabitControl, 0, &gigabit);
    if (rc != 0)
        return rc;
    InterfaceSettings settings{kReappliedInterface};
    rc = settings.read("Unable to get settings via ethtool");
    if (rc != 0)
        return rc;

    rc = ddal_phy_write(phy_dev, kGigabitControl, 0, static_cast<uint16_t>((gigabit & ~mode.clear) | mode.set));
    if (rc == 0)
        rc = change_register(phy_dev, kControl, 0xFFFF, kControlReset);
    if (rc != 0)
        return rc;
    return settings.write("Unable to set ethtool settings.");
}

} // namespace

int ddal_phy_copper_get_master_slave(uint32_t phy_dev, uint16_t *is_master)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kGetRole, is_master))
        return *answer;
    if (const int rc = change_register(phy_dev, kExpansion, kKeepInExpansion, 0))
        return rc;
    uint16_t status = 0;
    const int rc = ddal_phy_read(phy_dev, kGigabitStatus, 0, &status);
    *is_master = (status & kResolvedMaster) != 0;
    return rc;
}

int ddal_phy_copper_set_master_slave(uint32_t phy_dev, uint32_t mode)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kSetRole, mode))
        return *answer;
    const Mode *const row = find_mode(mode);
    return row ? apply_mode(phy_dev, *row) : log_error(-EINVAL, "wrong mode value\n");
}

int ddal_phy_copper_get_master_slave_configuration(uint32_t phy_dev, uint16_t *config, uint16_t *port_type)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kGetRoleConfiguration, config, port_type))
        return *answer;
    uint16_t gigabit = 0;
    if (const int rc = ddal_phy_read(phy_dev, kGigabitControl, 0, &gigabit))
        return rc;
    if (!(gigabit & kManual))
        *config = 2;
    else
        *config = gigabit & kMaster ? 1 : 0;
    *port_type = gigabit & kMultiPort ? 4 : 8;
    return 0;
}
