// Recognition, settings and state of the external multiport switch's PHYs.
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>

#include "core/log.h"
#include "switch/external/chip.h"
#include "switch/external/speed.h"

using namespace ddal::external;

namespace {

// The two registers that speed and duplex mode come from.
struct Settings {
    uint16_t control = 0;
    uint16_t state = 0;

    bool is_resolved() const { return state & kStatusResolved; }
    uint32_t speed() const
    {
        if (!(control & kAutoneg))
            return speed_of_bits(control);
        return is_resolved() ? speed_of_code(state >> 14) : DDAL_PHY_UNKNOWN;
    }
    uint32_t duplex() const
    {
        if (!(control & kAutoneg))
            return (control & kFullDuplex) != 0;
        return is_resolved() ? (state & kStatusFullDuplex) != 0 : DDAL_PHY_UNKNOWN;
    }
};

int read_settings(Chip &chip, uint32_t port, Settings *settings)
{
    const int rc = chip.read_phy(port, kCopperPage, kControl, &settings->control);
    return rc != 0 ? rc : chip.read_phy(port, kCopperPage, kCopperStatus, &settings->state);
}

template <typename Value>
int get_setting(const char *caller, uint32_t port, const char *name, uint32_t *output, Value value)
{
    if (!output)
        return log_error_as(caller, DDAL_ERR_FAILURE, "%s is NULL\n", name);
    return with_phy(caller, port, [&](Chip &chip) {
        Settings settings;
        const int rc = read_settings(chip, port, &settings);
        if (rc == 0)
            *output = value(settings);
        return rc;
    });
}

// Changes bits of the control register. The PHY applies them with a reset, which drops the link. No reset is needed
// while auto-negotiation decides.
int change_control(const char *caller, uint32_t port, uint16_t bits, uint16_t set)
{
    return with_phy(caller, port, [&](Chip &chip) {
        uint16_t control = 0;
        int rc = chip.read_phy(port, kCopperPage, kControl, &control);
        if (rc != 0)
            return rc;
        control = static_cast<uint16_t>((control & ~bits) | set);
        rc = chip.write_phy(port, kCopperPage, kControl, control);
        return rc != 0 || control & kAutoneg ? rc : chip.reset_phy(port);
    });
}

} // namespace

DDAL_WEAK int is_BH3_type_multiport_switch()
{
    return Chip::is_known() || Chip{__func__}.open(false) == 0 ? 0 : -1;
}

DDAL_WEAK int ex_switch_phy_set_autoneg(uint32_t port, uint32_t state)
{
    const uint16_t set = state == 1 ? kAutoneg | kRestart : 0;
    return change_control(__func__, port, kAutoneg, set);
}

DDAL_WEAK int ex_switch_phy_get_autoneg(uint32_t port, uint32_t *state)
{
    return get_setting(__func__, port, "state", state, [](const Settings &s) { return (s.control & kAutoneg) != 0; });
}

DDAL_WEAK int ex_switch_phy_set_duplex_mode(uint32_t port, uint32_t mode)
{
    if (mode > DDAL_PHY_FULL_DUPLEX)
        return log_error(-EINVAL, "wrong mode value\n");
    const uint16_t set = mode == DDAL_PHY_FULL_DUPLEX ? kFullDuplex : 0;
    return change_control(__func__, port, kFullDuplex, set);
}

DDAL_WEAK int ex_switch_phy_get_duplex_mode(uint32_t port, uint32_t *mode)
{
    return get_setting(__func__, port, "mode", mode, [](const Settings &s) { return s.duplex(); });
}

DDAL_WEAK int ex_switch_phy_set_speed(uint32_t port, uint32_t speed)
{
    const SpeedRow *const row = find_speed(speed);
    if (!row)
        return log_error(-EINVAL, "wrong speed value\n");
    return change_control(__func__, port, kSpeedBits, row->bits);
}

DDAL_WEAK int ex_switch_phy_get_speed(uint32_t port, uint32_t *speed)
{
    return get_setting(__func__, port, "speed", speed, [](const Settings &s) { return s.speed(); });
}

DDAL_WEAK int ex_switch_phy_copper_get_status(uint32_t port, struct ddal_phy_copper_status *status)
{
    if (!status)
        return log_error(DDAL_ERR_FAILURE, "status is NULL\n");
    return with_phy(__func__, port, [&](Chip &chip) {
        uint16_t word = 0;
        Settings settings;
        int rc = chip.read_phy(port, kCopperPage, kStatus, &word);
        if (rc == 0) // the first word tells of a loss in the past
            rc = chip.read_phy(port, kCopperPage, kStatus, &word);
        if (rc == 0)
            rc = read_settings(chip, port, &settings);
        if (rc != 0)
            return rc;
        const bool link = word & kLink;
        *status = {link, link ? settings.speed() : DDAL_PHY_UNKNOWN, link ? settings.duplex() : DDAL_PHY_UNKNOWN};
        return 0;
    });
}

DDAL_WEAK int ex_switch_phy_copper_restart_autoneg(uint32_t port)
{
    return with_phy(__func__, port, [&](Chip &chip) {
        return chip.change_phy(port, kCopperPage, kControl, 0xFFFF, kAutoneg | kRestart);
    });
}
