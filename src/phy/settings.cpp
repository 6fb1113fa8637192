// Auto-negotiation, duplex mode and speed.
#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>
#include <cstdio>

#include "core/log.h"
#include "phy/interface_control.h"
#include "phy/route.h"

using namespace ddal::phy;

namespace {

// The settings of a PHY's interface; a failure also appears under the caller's name.
int read_settings(const char *caller, uint32_t phy_dev, const Interface &interface, ethtool_cmd *settings)
{
    InterfaceControl control{interface.name};
    if (control && control.get_settings(settings) == 0)
        return 0;
    perror(control ? "Unable to get settings via ethtool." : "Unable to create socket");
    return log_error_as(caller, DDAL_ERR_FAILURE, "failed to get settings for interface 0x%x[%s]\n", phy_dev,
                        interface.name);
}

// Reads the settings, lets `change` alter them and writes them back.
template <typename Change>
int change_settings(const Interface &interface, const char *failure, Change change)
{
    InterfaceControl control{interface.name};
    if (!control)
        return print_failure("Unable to create socket");
    ethtool_cmd settings{};
    if (control.get_settings(&settings) != 0)
        return print_failure("Unable to get settings via ethtool.");
    change(settings);
    return control.set_settings(&settings) == 0 ? 0 : print_failure(failure);
}

} // namespace

int ddal_phy_set_autoneg(uint32_t phy_dev, uint32_t, uint32_t state)
{
    if (!has_phy_access())
        return -ENOSYS;
    Route route{{__func__, "set autoneg", "ex_switch_phy_set_autoneg", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_autoneg(route.port(), state));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_set_autoneg(route.port(), state));
    case BackEnd::kLocal: break;
    }

    const char *const ifname = route.interface().name;
    InterfaceControl control{ifname};
    if (!control)
        return print_failure("Unable to create socket");
    ethtool_cmd settings{};
    if (control.get_settings(&settings) != 0)
        return print_failure("Unable to get ethtool settings.");
    settings.autoneg = state == 1 ? AUTONEG_ENABLE : AUTONEG_DISABLE;
    if (settings.autoneg == AUTONEG_ENABLE)
        log_line(LOG_WARNING, "enabling aneg for interface %s\n", ifname);
    else
        log_line(LOG_WARNING, "disabling aneg for interface %s\n", ifname);
    return control.set_settings(&settings) == 0 ? 0 : print_failure("Unable to set ethtool settings.");
}

int ddal_phy_get_autoneg(uint32_t phy_dev, uint32_t, uint32_t *state)
{
    if (!has_phy_access())
        return -ENOSYS;
    if (!state)
        return log_error(DDAL_ERR_FAILURE, "state is NULL\n");
    Route route{{__func__, "get autoneg", "ex_switch_phy_get_autoneg", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_autoneg(route.port(), state));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_get_autoneg(route.port(), state));
    case BackEnd::kLocal: break;
    }

    ethtool_cmd settings{};
    const int rc = read_settings(__func__, phy_dev, route.interface(), &settings);
    *state = settings.autoneg == AUTONEG_ENABLE;
    return rc;
}

int ddal_phy_set_duplex_mode(uint32_t phy_dev, uint32_t, uint32_t mode)
{
    if (!has_phy_access())
        return -ENOSYS;
    Route route{{__func__, "set duplex mode", "ex_switch_phy_set_duplex_mode", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_duplex_mode(route.port(), mode));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_set_duplex_mode(route.port(), mode));
    case BackEnd::kLocal: break;
    }
    return change_settings(route.interface(), "Unable to set duplex mode via ethtool.",
                           [=](ethtool_cmd &settings) { settings.duplex = static_cast<uint8_t>(mode); });
}

int ddal_phy_get_duplex_mode(uint32_t phy_dev, uint32_t, uint32_t *mode)
{
    if (!has_phy_access())
        return -ENOSYS;
    if (!mode)
        return log_error(DDAL_ERR_FAILURE, "mode is NULL\n");
    Route route{{__func__, "get duplex mode", "ex_switch_phy_get_duplex_mode", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_duplex_mode(route.port(), mode));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_get_duplex_mode(route.port(), mode));
    case BackEnd::kLocal: break;
    }

    ethtool_cmd settings{};
    const int rc = read_settings(__func__, phy_dev, route.interface(), &settings);
    *mode = settings.duplex;
    return rc;
}

int ddal_phy_set_speed(uint32_t phy_dev, uint32_t, uint32_t speed)
{
    if (!has_phy_access())
        return -ENOSYS;
    Route route{{__func__, "set speed", "ex_switch_phy_set_speed", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_speed(route.port(), speed));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_set_speed(route.port(), speed));
    case BackEnd::kLocal: break;
    }
    return change_settings(route.interface(), "Unable to set speed via ethtool.",
                           [=](ethtool_cmd &settings) { settings.speed = static_cast<uint16_t>(speed); });
}

int ddal_phy_get_speed(uint32_t phy_dev, uint32_t, uint32_t *speed)
{
    if (!has_phy_access())
        return -ENOSYS;
    if (!speed)
        return log_error(DDAL_ERR_FAILURE, "speed is NULL\n");
    Route route{{__func__, "get speed", "ex_switch_phy_get_speed", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_speed(route.port(), speed));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_get_speed(route.port(), speed));
    case BackEnd::kLocal: break;
    }

    ethtool_cmd settings{};
    const int rc = read_settings(__func__, phy_dev, route.interface(), &settings);
    *speed = settings.speed;
    return rc;
}
