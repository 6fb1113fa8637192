// Auto-negotiation, duplex mode, speed, power and status of the switch's ports.
#include <ddal/bcm.h>
#include <ddal/phy.h>

#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

// Reads a register of a copper port's PHY. Logs under the caller's name.
#define copper_register(port, reg, data) read_copper_register({__func__, __LINE__, "bcm_port_phy_get"}, port, reg, data)

namespace {

constexpr uint32_t kMarvellStatus = 17;
constexpr uint32_t kMarvellStatusFullDuplex = 0x2000;
constexpr uint32_t kMarvellStatusResolved = 0x0800;
constexpr uint32_t kUnknown = UINT32_MAX;

struct SpeedCode {
    uint32_t speed; // Mb/s
    uint32_t bits;
};

constexpr uint32_t kSpeedBits = kControlLoadSpeed100 | kControlLoadSpeed1000;
constexpr SpeedCode kCopperSpeeds[] = {{10, 0}, {100, kControlLoadSpeed100}, {1000, kControlLoadSpeed1000}};
constexpr uint32_t kSpeeds[] = {10, 100, 1000, 2500, 10000};
constexpr uint32_t kFibreSpeeds[] = {2500, 10000};

template <size_t N>
bool is_one_of(const uint32_t (&list)[N], uint32_t value)
{
    for (const uint32_t entry : list) {
        if (entry == value)
            return true;
    }
    return false;
}

const SpeedCode *copper_speed(uint32_t speed)
{
    for (const SpeedCode &code : kCopperSpeeds) {
        if (code.speed == speed)
            return &code;
    }
    return nullptr;
}

// A forced mode requires auto-negotiation to be off.
int force_copper_mode(uint32_t port, uint32_t value, uint32_t mask)
{
    const int rc = copper_port_control_register_modify(port, kControlReset, kControlReset | kControlAutoneg);
    return rc != 0 ? rc : copper_port_control_register_modify(port, kControlReset | value, kControlReset | mask);
}

} // namespace

int ddal_bcm_set_autoneg(uint32_t port, uint32_t state)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (state > 1)
        return log_error(DDAL_ERR_FAILURE, "unsupported DDAL state %d\n", static_cast<int>(state));
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    const uint32_t autoneg = state ? kControlAutoneg : 0;
    const int rc = is_copper(port) ? copper_port_control_register_modify(port, kControlReset | autoneg,
                                                                         kControlReset | kControlAutoneg)
                                   : sdk_on_port(port, bcm_port_autoneg_set, state);
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Setting autoneg failed on port %u\n", port);
}

int ddal_bcm_get_autoneg(uint32_t port, uint32_t *state)
{
    if (open_port_for(__func__, port, state, "state is NULL") != 0)
        return DDAL_ERR_FAILURE;

    uint32_t control = 0;
    int autoneg = 0;
    const int rc = is_copper(port) ? copper_register(port, kControlRegister, &control)
                                   : sdk_on_port(port, bcm_port_autoneg_get, &autoneg);
    if (rc != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting autoneg failed on port %u\n", port);
    *state = (control & kControlAutoneg) != 0 || autoneg != 0;
    return 0;
}

int ddal_bcm_copper_restart_autoneg(uint32_t port)
{
    if (check_port(__func__, port) != 0 || check_copper(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    constexpr uint32_t kRestart = kControlReset | kControlRestartAutoneg;
    if (copper_port_control_register_modify(port, kRestart, kRestart) != 0)
        return log_error(DDAL_ERR_FAILURE, "Restarting autoneg failed on port %u\n", port);
    return 0;
}

int ddal_bcm_set_duplex_mode(uint32_t port, uint32_t mode)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (mode > 1)
        return log_error(DDAL_ERR_FAILURE, "unsupported DDAL duplex mode %d\n", static_cast<int>(mode));
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    const int rc = is_copper(port) ? force_copper_mode(port, mode ? kControlFullDuplex : 0, kControlFullDuplex)
                                   : sdk_on_port(port, bcm_port_duplex_set, mode);
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "port %u duplex mode set error\n", port);
}

int ddal_bcm_get_duplex_mode(uint32_t port, uint32_t *mode)
{
    if (open_port_for(__func__, port, mode, "mode is NULL") != 0)
        return DDAL_ERR_FAILURE;

    uint32_t control = 0;
    int duplex = 0;
    const int rc = is_copper(port) ? copper_register(port, kControlRegister, &control)
                                   : sdk_on_port(port, bcm_port_duplex_get, &duplex);
    if (rc != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u duplex mode get error\n", port);
    *mode = (control & kControlFullDuplex) != 0 || duplex != 0;
    return 0;
}

int ddal_bcm_set_speed(uint32_t port, uint32_t speed)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    const SpeedCode *const code = copper_speed(speed);
    if (is_copper(port) ? !code : !is_one_of(kSpeeds, speed))
        return log_error(DDAL_ERR_FAILURE, "unsupported DDAL speed value %d\n", static_cast<int>(speed));
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    const int rc = is_copper(port) ? force_copper_mode(port, code->bits, kSpeedBits)
                                   : sdk_on_port(port, bcm_port_speed_set, speed);
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "port %u speed set error\n", port);
}

int ddal_bcm_get_speed(uint32_t port, uint32_t *speed)
{
    if (open_port_for(__func__, port, speed, "speed is NULL") != 0)
        return DDAL_ERR_FAILURE;

    if (is_copper(port)) {
        uint32_t control = 0;
        if (copper_register(port, kControlRegister, &control) != 0)
            return log_error(DDAL_ERR_FAILURE, "port %u speed get error\n", port);
        for (const SpeedCode &code : kCopperSpeeds) {
            if (code.bits == (control & kSpeedBits)) {
                *speed = code.speed;
                return 0;
            }
        }
        return log_error(DDAL_ERR_FAILURE, "invalid PHY speed value 0x%x\n", control & kSpeedBits);
    }

    int fibre = 0;
    if (sdk_on_port(port, bcm_port_speed_get, &fibre) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u speed get error\n", port);
    if (!is_one_of(kFibreSpeeds, static_cast<uint32_t>(fibre)))
        return log_error(DDAL_ERR_FAILURE, "unsupported DDAL speed value %d\n", fibre);
    *speed = static_cast<uint32_t>(fibre);
    return 0;
}

int ddal_bcm_power_down(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    const int rc = is_copper(port) ? copper_port_control_register_modify(port, kControlPowerDown, kControlPowerDown)
                                   : sdk_on_port(port, bcm_port_enable_set, 0);
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Powering down failed on port %u\n", port);
}

int ddal_bcm_power_up(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    const int rc = is_copper(port) ? copper_port_control_register_modify(port, 0, kControlPowerDown)
                                   : sdk_on_port(port, bcm_port_enable_set, 1);
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Powering up failed on port %u\n", port);
}

int ddal_bcm_copper_reset(uint32_t port)
{
    if (check_port(__func__, port) != 0 || check_copper(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (copper_port_control_register_modify(port, kControlReset, kControlReset) != 0)
        return log_error(DDAL_ERR_FAILURE, "Copper reset failed on port %u\n", port);
    return 0;
}

namespace {

// Reads the negotiated duplex mode. On copper the PHY reports it once it is resolved.
int read_duplex(uint32_t port, uint32_t *duplex)
{
    if (!is_copper(port)) {
        int mode = 0;
        const int rv = sdk_on_port(port, bcm_port_duplex_get, &mode);
        *duplex = static_cast<uint32_t>(mode);
        return rv;
    }
    uint32_t status = 0;
    const int rv = sdk_result(bcm_port_phy_get, kUnit, mdio_address(port), BCM_PORT_PHY_NOMAP, kMarvellStatus, &status);
    if (rv != BCM_E_NONE)
        return log_error(rv, "Reading Marvell copper specific status reg1 failed on port %u: %s\n", port, sdk_text(rv));
    *duplex = status & kMarvellStatusResolved ? (status & kMarvellStatusFullDuplex) != 0 : kUnknown;
    return 0;
}

} // namespace

int ddal_bcm_copper_get_status(uint32_t port, struct ddal_phy_copper_status *status)
{
    if (open_port_for(__func__, port, status, "status cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    int link = 0;
    if (sdk_on_port(port, bcm_port_link_status_get, &link) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u link status get error\n", port);
    if (link != BCM_PORT_LINK_STATUS_UP && link != BCM_PORT_LINK_STATUS_DOWN)
        return log_error(DDAL_ERR_FAILURE, "invalid link status %d\n", link);

    *status = {static_cast<uint32_t>(link), kUnknown, kUnknown};
    if (link == BCM_PORT_LINK_STATUS_DOWN)
        return 0;

    int speed = 0;
    if (sdk_on_port(port, bcm_port_speed_get, &speed) != 0 || read_duplex(port, &status->duplex) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u copper status get error\n", port);
    status->speed = static_cast<uint32_t>(speed);
    return 0;
}
