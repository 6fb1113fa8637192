// Advertisement of a copper PHY to its partner.
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

using enum Needs;
using enum Rule;

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

// clang-format off
constexpr Served kSetAdvert{{"copper set config advert", "ex_switch_phy_copper_set_config_advert", kFitting, kPhysAndCopper},
                            ddal_bcm_set_config_advert, ex_switch_phy_copper_set_config_advert};
constexpr Served kGetAdvert{{"copper get config advert", "ex_switch_phy_copper_get_config_advert", kFitting, kCopper, "enabled"},
                            ddal_bcm_get_config_advert, ex_switch_phy_copper_get_config_advert};
constexpr Served kSetPause{{"copper set config advert pause", "ex_switch_phy_copper_set_config_advert_pause_frames", kFitting, kCopper},
                           ddal_bcm_set_config_advert_pause, ex_switch_phy_copper_set_config_advert_pause_frames};
constexpr Served kGetPause{{"copper get config advert pause", "ex_switch_phy_copper_get_config_advert_pause_frames", kFitting, kCopper, "pause"},
                           ddal_bcm_get_config_advert_pause, ex_switch_phy_copper_get_config_advert_pause_frames};
// clang-format on

// The settings of an interface, and the bit of one mode in its advertisement.
struct Advertised {
    InterfaceSettings settings;
    uint32_t bit = 0;
};

// Checks a mode and finds its bit. Returns 0 or -EINVAL.
int find_bit(const char *caller, uint32_t speed, uint32_t mode, uint32_t enable, uint32_t *bit)
{
    if (mode > 1)
        return log_error_as(caller, -EINVAL, "wrong mode value\n");
    if (enable > 1)
        return log_error_as(caller, -EINVAL, "wrong enable value\n");
    for (const AdvertisedMode &row : kAdvertisedModes) {
        if (row.speed == speed) {
            *bit = mode ? row.full : row.half;
            return 0;
        }
    }
    return log_error_as(caller, -EINVAL, "wrong speed value\n");
}

// Finds the mode and reads the settings. Returns 0 or a negative code.
int read_advertised(const char *caller, uint32_t speed, uint32_t mode, uint32_t enable, Advertised *advertised)
{
    const int rc = find_bit(caller, speed, mode, enable, &advertised->bit);
    return rc != 0 ? rc : advertised->settings.read("Unable to get settings via ethtool.");
}

} // namespace

int ddal_phy_copper_set_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint32_t enable)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kSetAdvert, speed, mode, enable))
        return *answer;
    Advertised found{InterfaceSettings{route.found().name}};
    const int rc = read_advertised(__func__, speed, mode, enable, &found);
    if (rc != 0)
        return rc;
    uint32_t &advertising = found.settings.values.advertising;
    advertising = enable ? advertising | found.bit : advertising & ~found.bit;
    return found.settings.write("ioctl failure for ETHTOOL_SSET");
}

int ddal_phy_copper_get_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint16_t *enabled)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kGetAdvert, speed, mode, enabled))
        return *answer;
    Advertised found{InterfaceSettings{route.found().name}};
    const int rc = read_advertised(__func__, speed, mode, 0, &found);
    if (rc == 0)
        *enabled = (found.settings.values.advertising & found.bit) != 0;
    return rc;
}

int ddal_phy_copper_set_config_advert_pause_frames(uint32_t phy_dev, uint32_t pause, uint32_t asym_pause)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kSetPause, pause, asym_pause))
        return *answer;

    uint16_t advertised = 0;
    int rc = ddal_phy_read(phy_dev, kAdvertisement, 0, &advertised);
    if (rc != 0)
        return rc;
    advertised = static_cast<uint16_t>(advertised & ~(kPause | kAsymmetricPause));
    if (asym_pause) // kept: regardless of pause
        advertised |= kAsymmetricPause;
    else if (pause)
        advertised |= kPause;
    rc = ddal_phy_write(phy_dev, kAdvertisement, 0, advertised);
    return log_failure(rc, "pause write failed\n");
}

int ddal_phy_copper_get_config_advert_pause_frames(uint32_t phy_dev, uint16_t *pause, uint16_t *asym_pause)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kGetPause, pause, asym_pause))
        return *answer;
    uint16_t advertised = 0;
    const int rc = ddal_phy_read(phy_dev, kAdvertisement, 0, &advertised);
    *pause = (advertised & kPause) != 0;
    *asym_pause = (advertised & kAsymmetricPause) != 0;
    return rc;
}
