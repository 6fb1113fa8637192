// What a copper PHY advertises to its partner.
#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>

#include "core/log.h"
#include "phy/interface_control.h"
#include "phy/registers.h"
#include "phy/route.h"

using namespace ddal::phy;

namespace {

constexpr uint16_t kPause = 0x0400;
constexpr uint16_t kAsymmetricPause = 0x0800;

struct AdvertisedMode {
    uint32_t speed;
    uint32_t half;
    uint32_t full;
};

constexpr AdvertisedMode kAdvertisedModes[] = {
    {10, ADVERTISED_10baseT_Half, ADVERTISED_10baseT_Full},
    {100, ADVERTISED_100baseT_Half, ADVERTISED_100baseT_Full},
    {1000, ADVERTISED_1000baseT_Half, ADVERTISED_1000baseT_Full},
};
static_assert(kAdvertisedModes[0].half == 0x01 && kAdvertisedModes[2].full == 0x20);

// The ethtool bit of a mode that was found valid; 0 for an unknown speed.
uint32_t advertised_bit(uint32_t speed, uint32_t mode)
{
    for (const AdvertisedMode &row : kAdvertisedModes) {
        if (row.speed == speed)
            return mode ? row.full : row.half;
    }
    return 0;
}

// 0, or -1001 with its text on standard error.
int read_settings(InterfaceControl *control, ethtool_cmd *settings)
{
    if (!*control)
        return print_failure("Unable to create socket");
    return control->get_settings(settings) == 0 ? 0 : print_failure("Unable to get settings via ethtool.");
}

} // namespace

int ddal_phy_copper_set_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint32_t enable)
{
    if (!has_phy_access())
        return -ENOSYS;
    Route route{{__func__, "copper set config advert", "ex_switch_phy_copper_set_config_advert", Rule::kFitting},
                phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_config_advert(route.port(), speed, mode, enable));
    case BackEnd::kMarvell:
        return route.finish(ex_switch_phy_copper_set_config_advert(route.port(), speed, mode, enable));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    if (mode > 1)
        return log_error(-EINVAL, "wrong mode value\n");
    if (enable > 1)
        return log_error(-EINVAL, "wrong enable value\n");
    const uint32_t bit = advertised_bit(speed, mode);
    if (bit == 0)
        return log_error(-EINVAL, "wrong speed value\n");

    InterfaceControl control{route.interface().name};
    ethtool_cmd settings{};
    if (read_settings(&control, &settings) != 0)
        return DDAL_ERR_FAILURE;
    settings.advertising = enable ? settings.advertising | bit : settings.advertising & ~bit;
    return control.set_settings(&settings) == 0 ? 0 : print_failure("ioctl failure for ETHTOOL_SSET");
}

int ddal_phy_copper_get_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint16_t *enabled)
{
    if (!enabled)
        return log_error(DDAL_ERR_FAILURE, "enabled is NULL\n");
    Route route{{__func__, "copper get config advert", "ex_switch_phy_copper_get_config_advert", Rule::kFitting},
                phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_config_advert(route.port(), speed, mode, enabled));
    case BackEnd::kMarvell:
        return route.finish(ex_switch_phy_copper_get_config_advert(route.port(), speed, mode, enabled));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    if (mode > 1)
        return log_error(-EINVAL, "wrong mode value\n");
    const uint32_t bit = advertised_bit(speed, mode);
    if (bit == 0)
        return log_error(-EINVAL, "wrong speed value\n");

    InterfaceControl control{route.interface().name};
    ethtool_cmd settings{};
    if (read_settings(&control, &settings) != 0)
        return DDAL_ERR_FAILURE;
    *enabled = (settings.advertising & bit) != 0;
    return 0;
}

int ddal_phy_copper_set_config_advert_pause_frames(uint32_t phy_dev, uint32_t pause, uint32_t asym_pause)
{
    Route route{{__func__, "copper set config advert pause", "ex_switch_phy_copper_set_config_advert_pause_frames",
                 Rule::kFitting},
                phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_config_advert_pause(route.port(), pause, asym_pause));
    case BackEnd::kMarvell:
        return route.finish(ex_switch_phy_copper_set_config_advert_pause_frames(route.port(), pause, asym_pause));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;

    uint16_t advertised = 0;
    int rc = ddal_phy_read(phy_dev, kAdvertisement, 0, &advertised);
    if (rc != 0)
        return rc;
    advertised = static_cast<uint16_t>(advertised & ~(kPause | kAsymmetricPause));
    if (asym_pause) // kept: whatever pause says
        advertised |= kAsymmetricPause;
    else if (pause)
        advertised |= kPause;
    rc = ddal_phy_write(phy_dev, kAdvertisement, 0, advertised);
    return log_failure(rc, "pause write failed\n");
}

int ddal_phy_copper_get_config_advert_pause_frames(uint32_t phy_dev, uint16_t *pause, uint16_t *asym_pause)
{
    if (!pause || !asym_pause)
        return log_error(DDAL_ERR_FAILURE, "pause is NULL\n");
    Route route{{__func__, "copper get config advert pause", "ex_switch_phy_copper_get_config_advert_pause_frames",
                 Rule::kFitting},
                phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_config_advert_pause(route.port(), pause, asym_pause));
    case BackEnd::kMarvell:
        return route.finish(ex_switch_phy_copper_get_config_advert_pause_frames(route.port(), pause, asym_pause));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    uint16_t advertised = 0;
    const int rc = ddal_phy_read(phy_dev, kAdvertisement, 0, &advertised);
    *pause = (advertised & kPause) != 0;
    *asym_pause = (advertised & kAsymmetricPause) != 0;
    return rc;
}
