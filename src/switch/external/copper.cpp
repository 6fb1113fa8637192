// Advertisement, crossover, loopback and power of the external multiport switch's PHYs.
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "core/log.h"
#include "core/sleep.h"
#include "switch/external/chip.h"
#include "switch/external/speed.h"

using namespace ddal::external;

namespace {

constexpr uint64_t kResetBeforeLoopbackUs = 1000000;            // the PHY needs it at 1000 Mb/s
constexpr uint16_t kCrossoverBits[] = {0x0000, 0x0020, 0x0060}; // by enum ddal_phy_crossover

int read_copper(const char *caller, uint32_t port, uint32_t reg, uint16_t *value)
{
    return with_phy(caller, port, [&](Chip &chip) { return chip.read_phy(port, kCopperPage, reg, value); });
}

// Changes bits of a register and lets the partner know, if auto-negotiation is on.
int change_advertisement(const char *caller, uint32_t port, uint32_t reg, uint16_t bits, uint16_t set)
{
    return with_phy(caller, port, [&](Chip &chip) {
        uint16_t control = 0;
        int rc = chip.change_phy(port, kCopperPage, reg, static_cast<uint16_t>(~bits), set);
        if (rc == 0)
            rc = chip.read_phy(port, kCopperPage, kControl, &control);
        if (rc != 0 || !(control & kAutoneg))
            return rc;
        return chip.write_phy(port, kCopperPage, kControl, control | kRestart);
    });
}

// Finds the bit of a mode in its register. Returns 0, or -EINVAL after a line.
int find_mode(const char *caller, uint32_t speed, uint32_t mode, uint32_t enable, uint32_t *reg, uint16_t *bit)
{
    if (mode > DDAL_PHY_FULL_DUPLEX)
        return log_error_as(caller, -EINVAL, "wrong mode value\n");
    if (enable > 1)
        return log_error_as(caller, -EINVAL, "wrong enable value\n");
    const SpeedRow *const row = find_speed(speed);
    if (!row)
        return log_error_as(caller, -EINVAL, "wrong speed value\n");
    *reg = row->advertisement;
    *bit = mode == DDAL_PHY_FULL_DUPLEX ? row->full : row->half;
    return 0;
}

// Prepares the MAC side for loopback at the present speed. *speed receives it, or 0 if the PHY loops already.
int prepare_loopback(Chip &chip, uint32_t port, uint32_t *speed)
{
    uint16_t control = 0;
    uint16_t state = 0;
    int rc = chip.read_phy(port, kCopperPage, kControl, &control);
    if (rc == 0)
        rc = chip.read_phy(port, kCopperPage, kCopperStatus, &state);
    if (rc != 0 || control & kLoopback)
        return rc;
    *speed = 1000; // auto-negotiation without a partner
    if (!(control & kAutoneg))
        *speed = speed_of_bits(control);
    else if (state & kStatusResolved)
        *speed = speed_of_code(state >> 14);
    const SpeedRow *const row = find_speed(*speed);
    if (!row)
        return log_error(DDAL_ERR_FAILURE, "PHY of port %u reports an unknown speed\n", port);
    rc = chip.change_phy(port, kMacPage, kMacControl, static_cast<uint16_t>(~kSpeedBits), row->bits);
    return rc != 0 ? rc : chip.reset_phy(port);
}

} // namespace

DDAL_WEAK int ex_switch_phy_get_copper_loopback(uint32_t port, uint32_t *state)
{
    if (!state)
        return log_error(DDAL_ERR_FAILURE, "state is NULL\n");
    uint16_t control = 0;
    const int rc = read_copper(__func__, port, kControl, &control);
    if (rc == 0)
        *state = (control & kLoopback) != 0;
    return rc;
}

DDAL_WEAK int ex_switch_phy_set_copper_loopback(uint32_t port, uint32_t state)
{
    if (state > 1)
        return log_error(-EINVAL, "wrong state value\n");
    if (state == 0)
        return with_phy(__func__, port, [&](Chip &chip) {
            return chip.change_phy(port, kCopperPage, kControl, static_cast<uint16_t>(~kLoopback), 0);
        });

    uint32_t speed = 0;
    const int rc = with_phy(__func__, port, [&](Chip &chip) { return prepare_loopback(chip, port, &speed); });
    if (rc != 0 || speed == 0)
        return rc;
    if (speed == 1000)
        ddal::core::sleep_us(kResetBeforeLoopbackUs); // without the lock: others may use the switch meanwhile
    return with_phy(__func__, port,
                    [&](Chip &chip) { return chip.change_phy(port, kCopperPage, kControl, 0xFFFF, kLoopback); });
}

DDAL_WEAK int ex_switch_phy_copper_power(uint32_t port, uint32_t on)
{
    if (on > 1)
        return log_error(-EINVAL, "wrong state value\n");
    return with_phy(__func__, port, [&](Chip &chip) {
        const uint16_t set = on ? 0 : kPowerDown;
        return chip.change_phy(port, kCopperPage, kControl, static_cast<uint16_t>(~kPowerDown), set);
    });
}

DDAL_WEAK int ex_switch_phy_copper_reset(uint32_t port)
{
    return with_phy(__func__, port, [&](Chip &chip) { return chip.reset_phy(port); });
}

DDAL_WEAK int ex_switch_phy_copper_set_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint32_t enable)
{
    uint32_t reg = 0;
    uint16_t bit = 0;
    const int rc = find_mode(__func__, speed, mode, enable, &reg, &bit);
    return rc != 0 ? rc : change_advertisement(__func__, port, reg, bit, enable ? bit : 0);
}

DDAL_WEAK int ex_switch_phy_copper_get_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint16_t *enabled)
{
    if (!enabled)
        return log_error(DDAL_ERR_FAILURE, "enabled is NULL\n");
    uint32_t reg = 0;
    uint16_t bit = 0;
    uint16_t advertised = 0;
    int rc = find_mode(__func__, speed, mode, 0, &reg, &bit);
    if (rc == 0)
        rc = read_copper(__func__, port, reg, &advertised);
    if (rc == 0)
        *enabled = (advertised & bit) != 0;
    return rc;
}

DDAL_WEAK int ex_switch_phy_copper_set_crossover_mode(uint32_t port, uint32_t mode)
{
    if (mode > DDAL_PHY_CROSSOVER_AUTO)
        return log_error(-EINVAL, "wrong mode value\n");
    return with_phy(__func__, port, [&](Chip &chip) {
        const int rc = chip.change_phy(port, kCopperPage, kCopperControl, static_cast<uint16_t>(~kCrossover),
                                       kCrossoverBits[mode]);
        return rc != 0 ? rc : chip.reset_phy(port);
    });
}

DDAL_WEAK int ex_switch_phy_copper_get_crossover_mode(uint32_t port, uint16_t *mode)
{
    if (!mode)
        return log_error(DDAL_ERR_FAILURE, "mode is NULL\n");
    uint16_t control = 0;
    if (const int rc = read_copper(__func__, port, kCopperControl, &control))
        return rc;
    const auto *const bits = std::find(std::begin(kCrossoverBits), std::end(kCrossoverBits), control & kCrossover);
    if (bits != std::end(kCrossoverBits)) {
        *mode = static_cast<uint16_t>(bits - kCrossoverBits);
        return 0;
    }
    return log_error(DDAL_ERR_FAILURE, "Unknown value returned\n");
}

DDAL_WEAK int ex_switch_phy_copper_set_config_advert_pause_frames(uint32_t port, uint32_t pause, uint32_t asym_pause)
{
    const uint16_t set = asym_pause ? kAsymmetricPause : pause ? kPause : 0; // as ddal_phy_* does, whatever pause says
    return change_advertisement(__func__, port, kAdvertisement, kPause | kAsymmetricPause, set);
}

DDAL_WEAK int ex_switch_phy_copper_get_config_advert_pause_frames(uint32_t port, uint16_t *pause, uint16_t *asym_pause)
{
    if (!pause || !asym_pause)
        return log_error(DDAL_ERR_FAILURE, "pause is NULL\n");
    uint16_t advertised = 0;
    const int rc = read_copper(__func__, port, kAdvertisement, &advertised);
    if (rc == 0) {
        *pause = (advertised & kPause) != 0;
        *asym_pause = (advertised & kAsymmetricPause) != 0;
    }
    return rc;
}
