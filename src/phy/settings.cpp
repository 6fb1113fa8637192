// Auto-negotiation, duplex mode and speed.
#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <functional>

#include "core/log.h"
#include "phy/interface_control.h"
#include "phy/route.h"

using namespace ddal::phy;

namespace {

using enum Needs;
using enum Rule;

// clang-format off
constexpr Served kSetAutoneg{{"set autoneg", "ex_switch_phy_set_autoneg", kFitting, kPhys},
                             ddal_bcm_set_autoneg, ex_switch_phy_set_autoneg};
constexpr Served kGetAutoneg{{"get autoneg", "ex_switch_phy_get_autoneg", kFitting, kPhys, "state"},
                             ddal_bcm_get_autoneg, ex_switch_phy_get_autoneg};
constexpr Served kSetDuplexMode{{"set duplex mode", "ex_switch_phy_set_duplex_mode", kFitting, kPhys},
                                ddal_bcm_set_duplex_mode, ex_switch_phy_set_duplex_mode};
constexpr Served kGetDuplexMode{{"get duplex mode", "ex_switch_phy_get_duplex_mode", kFitting, kPhys, "mode"},
                                ddal_bcm_get_duplex_mode, ex_switch_phy_get_duplex_mode};
constexpr Served kSetSpeed{{"set speed", "ex_switch_phy_set_speed", kFitting, kPhys},
                           ddal_bcm_set_speed, ex_switch_phy_set_speed};
constexpr Served kGetSpeed{{"get speed", "ex_switch_phy_get_speed", kFitting, kPhys, "speed"},
                           ddal_bcm_get_speed, ex_switch_phy_get_speed};
// clang-format on

constexpr const char *kCannotGet = "Unable to get settings via ethtool.";

uint32_t autoneg_of(const ethtool_cmd &settings)
{
    return settings.autoneg == AUTONEG_ENABLE;
}

// Stores the value that `read` finds in the settings of a PHY's interface. After a failure the settings are empty.
template <typename Read>
int get_setting(const char *caller, uint32_t phy_dev, const Served<uint32_t *> &operation, uint32_t *value, Read read)
{
    Route route{caller, phy_dev};
    if (const auto answer = route.ask(operation, value))
        return *answer;

    const char *const ifname = route.found().name;
    InterfaceSettings settings{ifname};
    const int rc = settings.read(kCannotGet);
    *value = std::invoke(read, settings.values);
    return log_failure_as(caller, rc, "failed to get settings for interface 0x%x[%s]\n", phy_dev, ifname);
}

template <typename Field>
int set_setting(const char *caller, uint32_t phy_dev, const Served<uint32_t> &operation, uint32_t value,
                Field ethtool_cmd::*field, const char *failure)
{
    Route route{caller, phy_dev};
    if (const auto answer = route.ask(operation, value))
        return *answer;

    InterfaceSettings settings{route.found().name};
    if (const int rc = settings.read(kCannotGet))
        return rc;
    settings.values.*field = static_cast<Field>(value);
    return settings.write(failure);
}

} // namespace

int ddal_phy_set_autoneg(uint32_t phy_dev, uint32_t, uint32_t state)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kSetAutoneg, state))
        return *answer;

    const char *const ifname = route.found().name;
    InterfaceSettings settings{ifname};
    if (const int rc = settings.read("Unable to get ethtool settings."))
        return rc;
    settings.values.autoneg = state == 1 ? AUTONEG_ENABLE : AUTONEG_DISABLE;
    log_line(LOG_WARNING, "%s aneg for interface %s\n", state == 1 ? "enabling" : "disabling", ifname);
    return settings.write("Unable to set ethtool settings.");
}

int ddal_phy_get_autoneg(uint32_t phy_dev, uint32_t, uint32_t *state)
{
    return get_setting(__func__, phy_dev, kGetAutoneg, state, autoneg_of);
}

int ddal_phy_set_duplex_mode(uint32_t phy_dev, uint32_t, uint32_t mode)
{
    return set_setting(__func__, phy_dev, kSetDuplexMode, mode, &ethtool_cmd::duplex,
                       "Unable to set duplex mode via ethtool.");
}

int ddal_phy_get_duplex_mode(uint32_t phy_dev, uint32_t, uint32_t *mode)
{
    return get_setting(__func__, phy_dev, kGetDuplexMode, mode, &ethtool_cmd::duplex);
}

int ddal_phy_set_speed(uint32_t phy_dev, uint32_t, uint32_t speed)
{
    return set_setting(__func__, phy_dev, kSetSpeed, speed, &ethtool_cmd::speed, "Unable to set speed via ethtool.");
}

int ddal_phy_get_speed(uint32_t phy_dev, uint32_t, uint32_t *speed)
{
    return get_setting(__func__, phy_dev, kGetSpeed, speed, &ethtool_cmd::speed);
}
