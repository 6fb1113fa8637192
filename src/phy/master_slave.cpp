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

constexpr uint16_t kManual = 0x1000;
constexpr uint16_t kMaster = 0x0800;
constexpr uint16_t kMultiPort = 0x0400;
constexpr uint16_t kResolvedMaster = 0x4000;
constexpr uint16_t kKeepInExpansion = 0xFFFD;

constexpr const char *kReappliedInterface = "eth0"; // kept: whichever PHY device is changed

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

int refuse_switch_port(const char *caller, uint32_t port)
{
    return log_error_as(caller, -ENOSYS, "no master/slave operation on switch port %u\n", port);
}

// Changes the role, resets the PHY and lets the kernel apply its settings again.
int apply_mode(uint32_t phy_dev, const Mode &mode)
{
    uint16_t gigabit = 0;
    int rc = ddal_phy_read(phy_dev, kGigabitControl, 0, &gigabit);
    if (rc != 0)
        return rc;
    InterfaceControl control{kReappliedInterface};
    if (!control)
        return print_failure("Unable to create socket");
    ethtool_cmd settings{};
    if (control.get_settings(&settings) != 0)
        return print_failure("Unable to get settings via ethtool");

    rc = ddal_phy_write(phy_dev, kGigabitControl, 0, static_cast<uint16_t>((gigabit & ~mode.clear) | mode.set));
    if (rc == 0)
        rc = change_register(phy_dev, kControl, 0xFFFF, kControlReset);
    if (rc != 0)
        return rc;
    return control.set_settings(&settings) == 0 ? 0 : print_failure("Unable to set ethtool settings.");
}

} // namespace

int ddal_phy_copper_get_master_slave(uint32_t phy_dev, uint16_t *is_master)
{
    if (!is_master)
        return log_error(DDAL_ERR_FAILURE, "is_master is NULL\n");
    Route route{{__func__, "copper get master slave", nullptr, Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_master_slave(route.port(), is_master));
    case BackEnd::kMarvell: return refuse_switch_port(__func__, route.port());
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    if (const int rc = change_register(phy_dev, kExpansion, kKeepInExpansion, 0))
        return rc;
    uint16_t status = 0;
    const int rc = ddal_phy_read(phy_dev, kGigabitStatus, 0, &status);
    *is_master = (status & kResolvedMaster) != 0;
    return rc;
}

int ddal_phy_copper_set_master_slave(uint32_t phy_dev, uint32_t mode)
{
    Route route{{__func__, "copper set master slave", nullptr, Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_master_slave(route.port(), mode));
    case BackEnd::kMarvell: return refuse_switch_port(__func__, route.port());
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    const Mode *const row = find_mode(mode);
    return row ? apply_mode(phy_dev, *row) : log_error(-EINVAL, "wrong mode value\n");
}

int ddal_phy_copper_get_master_slave_configuration(uint32_t phy_dev, uint16_t *config, uint16_t *port_type)
{
    if (!config || !port_type)
        return log_error(DDAL_ERR_FAILURE, "config is NULL\n");
    Route route{{__func__, "copper get master slave configuration", nullptr, Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom:
        return route.finish(ddal_bcm_get_master_slave_configuration(route.port(), config, port_type));
    case BackEnd::kMarvell: return refuse_switch_port(__func__, route.port());
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
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
