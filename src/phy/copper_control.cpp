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

constexpr uint16_t kCrossoverBits = 0x0060;

struct CrossoverMode {
    uint16_t mode;
    uint16_t bits;
};

constexpr CrossoverMode kCrossoverModes[] = {{0, 0x0000}, {1, 0x0020}, {2, 0x0060}};

} // namespace

int ddal_phy_get_loopback_state(uint32_t phy_dev, uint32_t *state)
{
    if (!state)
        return log_error(DDAL_ERR_FAILURE, "state is NULL\n");
    Route route{{__func__, "get loopback", "ex_switch_phy_get_copper_loopback", Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_phy_loopback(route.port(), state));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_get_copper_loopback(route.port(), state));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    uint16_t control = 0;
    const int rc = ddal_phy_read(phy_dev, kControl, 0, &control);
    *state = (control & kControlLoopback) != 0;
    return rc;
}

int ddal_phy_copper_loopback_enable(uint32_t phy_dev)
{
    Route route{{__func__, "loopback enable", "ex_switch_phy_set_copper_loopback", Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_phy_loopback(route.port(), 1));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_set_copper_loopback(route.port(), 1));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    return change_register(phy_dev, kControl, 0xFFFF, kControlLoopback);
}

int ddal_phy_copper_loopback_disable(uint32_t phy_dev)
{
    Route route{{__func__, "loopback disable", "ex_switch_phy_set_copper_loopback", Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_phy_loopback(route.port(), 0));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_set_copper_loopback(route.port(), 0));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    return change_register(phy_dev, kControl, static_cast<uint16_t>(~kControlLoopback), 0);
}

int ddal_phy_copper_restart_autoneg(uint32_t phy_dev)
{
    if (!has_phy_access())
        return -ENOSYS;
    Route route{{__func__, "copper restart autoneg", "ex_switch_phy_copper_restart_autoneg", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_copper_restart_autoneg(route.port()));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_copper_restart_autoneg(route.port()));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    // kept: two writes, the first of which clears the register
    const int rc = ddal_phy_write(phy_dev, kControl, 0, 0x0000);
    return rc != 0 ? rc : ddal_phy_write(phy_dev, kControl, 0, kControlAutonegRestart);
}

int ddal_phy_copper_reset(uint32_t phy_dev)
{
    Route route{{__func__, "copper reset", "ex_switch_phy_copper_reset", Rule::kFitting}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_copper_reset(route.port()));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_copper_reset(route.port()));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
    return log_failure(ddal_phy_write(phy_dev, kControl, 0, kControlReset), "ddal_phy_write failed to reset phy bit\n");
}

int ddal_phy_copper_set_crossover_mode(uint32_t phy_dev, uint32_t mode)
{
    Route route{{__func__, "copper set mdix", "ex_switch_phy_copper_set_crossover_mode", Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_set_mdix(route.port(), mode));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_copper_set_crossover_mode(route.port(), mode));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
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
    if (!mode)
        return log_error(DDAL_ERR_FAILURE, "mode is NULL\n");
    Route route{{__func__, "copper get mdix", "ex_switch_phy_copper_get_crossover_mode", Rule::kCachedType}, phy_dev};
    if (const int rc = route.find())
        return rc;
    switch (route.back_end()) {
    case BackEnd::kBroadcom: return route.finish(ddal_bcm_get_mdix(route.port(), mode));
    case BackEnd::kMarvell: return route.finish(ex_switch_phy_copper_get_crossover_mode(route.port(), mode));
    case BackEnd::kLocal: break;
    }
    if (const int rc = route.check_copper())
        return rc;
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
