// Loopback, auto-negotiation, reset and crossover of copper PHYs.
#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>

#include "core/log.h"
#include "phy/registers.h"
#include "phy/route.h"

using namespace ddal::phy;

namespace {

using enum Needs;
using enum Rule;

constexpr uint16_t kCrossoverBits = 0x0060;

struct CrossoverMode {
    uint16_t mode;
    uint16_t bits;
};

constexpr CrossoverMode kCrossoverModes[] = {{0, 0x0000}, {1, 0x0020}, {2, 0x0060}};

// clang-format off
constexpr Served kGetLoopback{{"get loopback", "ex_switch_phy_get_copper_loopback", kCachedType, kCopper, "state"},
                              ddal_bcm_get_phy_loopback, ex_switch_phy_get_copper_loopback};
constexpr Served kEnableLoopback{{"loopback enable", "ex_switch_phy_set_copper_loopback", kCachedType, kCopper},
                                 ddal_bcm_set_phy_loopback, ex_switch_phy_set_copper_loopback};
constexpr Served kDisableLoopback{{"loopback disable", "ex_switch_phy_set_copper_loopback", kCachedType, kCopper},
                                  ddal_bcm_set_phy_loopback, ex_switch_phy_set_copper_loopback};
constexpr Served kRestartAutoneg{{"copper restart autoneg", "ex_switch_phy_copper_restart_autoneg", kFitting, kPhysAndCopper},
                                 ddal_bcm_copper_restart_autoneg, ex_switch_phy_copper_restart_autoneg};
constexpr Served kReset{{"copper reset", "ex_switch_phy_copper_reset", kFitting, kCopper},
                        ddal_bcm_copper_reset, ex_switch_phy_copper_reset};
constexpr Served kSetCrossover{{"copper set mdix", "ex_switch_phy_copper_set_crossover_mode", kCachedType, kCopper},
                               ddal_bcm_set_mdix, ex_switch_phy_copper_set_crossover_mode};
constexpr Served kGetCrossover{{"copper get mdix", "ex_switch_phy_copper_get_crossover_mode", kCachedType, kCopper, "mode"},
                               ddal_bcm_get_mdix, ex_switch_phy_copper_get_crossover_mode};
// clang-format on

int set_loopback(const char *caller, uint32_t phy_dev, const Served<uint32_t> &operation, bool on)
{
    Route route{caller, phy_dev};
    if (const auto answer = route.ask(operation, on ? 1 : 0))
        return *answer;
    return change_register(phy_dev, kControl, static_cast<uint16_t>(~kControlLoopback), on ? kControlLoopback : 0);
}

} // namespace

int ddal_phy_get_loopback_state(uint32_t phy_dev, uint32_t *state)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kGetLoopback, state))
        return *answer;
    uint16_t control = 0;
    const int rc = ddal_phy_read(phy_dev, kControl, 0, &control);
    *state = (control & kControlLoopback) != 0;
    return rc;
}

int ddal_phy_copper_loopback_enable(uint32_t phy_dev)
{
    return set_loopback(__func__, phy_dev, kEnableLoopback, true);
}

int ddal_phy_copper_loopback_disable(uint32_t phy_dev)
{
    return set_loopback(__func__, phy_dev, kDisableLoopback, false);
}

int ddal_phy_copper_restart_autoneg(uint32_t phy_dev)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kRestartAutoneg))
        return *answer;
    // kept: two writes, of which the first clears the register
    const int rc = ddal_phy_write(phy_dev, kControl, 0, 0x0000);
    return rc != 0 ? rc : ddal_phy_write(phy_dev, kControl, 0, kControlAutonegRestart);
}

int ddal_phy_copper_reset(uint32_t phy_dev)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kReset))
        return *answer;
    return log_failure(ddal_phy_write(phy_dev, kControl, 0, kControlReset), "ddal_phy_write failed to reset phy bit\n");
}

int ddal_phy_copper_set_crossover_mode(uint32_t phy_dev, uint32_t mode)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kSetCrossover, mode))
        return *answer;
    for (const CrossoverMode &row : kCrossoverModes) {
        if (row.mode != mode)
            continue;
        uint16_t control = 0;
        int rc = ddal_phy_read(phy_dev, kSpecificControl, 0, &control);
        if (rc != 0)
            return rc;
        rc =
            ddal_phy_write(phy_dev, kSpecificControl, 0, static_cast<uint16_t>((control & ~kCrossoverBits) | row.bits));
        return log_failure(rc, "crossover mode write failed\n");
    }
    return log_error(-EINVAL, "wrong mode value\n");
}

int ddal_phy_copper_get_crossover_mode_configuration(uint32_t phy_dev, uint16_t *mode)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kGetCrossover, mode))
        return *answer;
    uint16_t control = 0;
    if (const int rc = ddal_phy_read(phy_dev, kSpecificControl, 0, &control))
        return rc;
    for (const CrossoverMode &row : kCrossoverModes) {
        if (row.bits == (control & kCrossoverBits)) {
            *mode = row.mode;
            return 0;
        }
    }
    return log_error(DDAL_ERR_FAILURE, "Unknown value returned\n");
}
