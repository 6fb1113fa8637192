// Registers, loopback, crossover, master/slave role and recovered clock of the PHYs behind the switch's ports.
#include <ddal/bcm.h>

#include <cerrno>

#include "switch/broadcom/bcm_phy.h"
#include "switch/broadcom/marvell_clock.h"
#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

namespace ddal::ethswitch {

int reg_bits_to_frequency(uint32_t bits, uint16_t *code)
{
    const MarvellClock *const clock = find_marvell_clock(&MarvellClock::bits, bits);
    if (!clock)
        return log_error(DDAL_ERR_FAILURE, "inconsistent device config 0x%x, frequency not retrieved\n", bits);
    *code = static_cast<uint16_t>(clock->code);
    return 0;
}

int frequency_to_reg_bits(uint16_t code, uint32_t *bits)
{
    const MarvellClock *const clock = find_marvell_clock(&MarvellClock::code, code);
    if (!clock)
        return log_error(DDAL_ERR_FAILURE, "selected frequency is not supported by the marvell chip: %u\n",
                         static_cast<unsigned>(code));
    *bits = clock->bits;
    return 0;
}

} // namespace ddal::ethswitch

namespace {

constexpr uint32_t kPageRegister = 22;

// The 2.5G PHY mirrors standard registers at 7.FFE0 and above.
constexpr uint32_t kMirroredStatus = 0x7FFE1;
constexpr uint32_t kMirroredGigabitControl = 0x7FFE9;
constexpr uint32_t kMirroredGigabitStatus = 0x7FFEA;
constexpr uint32_t kLinkUp = 0x0004;
constexpr uint32_t kResolvedMaster = 0x4000;
constexpr uint32_t kMultiPort = 0x0400;

constexpr uint32_t kPreferMultiPort = 4; // modes of ddal_bcm_set_master_slave beyond the three of the SDK
constexpr uint32_t kPreferSinglePort = 8;

struct CrossoverMode {
    uint16_t mode;
    bcm_port_mdix_t sdk;
};

// The getter reports the first row of an SDK value.
constexpr CrossoverMode kCrossoverModes[] = {
    {0, BCM_PORT_MDIX_NORMAL}, {1, BCM_PORT_MDIX_XOVER}, {2, BCM_PORT_MDIX_AUTO}, {2, BCM_PORT_MDIX_FORCE_AUTO}};

int phy_get(int mdio, uint32_t reg, uint32_t *data)
{
    return sdk_result(bcm_port_phy_get, kUnit, mdio, BCM_PORT_PHY_NOMAP, reg, data);
}

int phy_set(int mdio, uint32_t reg, uint32_t data)
{
    return sdk_result(bcm_port_phy_set, kUnit, mdio, BCM_PORT_PHY_NOMAP, reg, data);
}

int set_page(const char *caller, int mdio, uint32_t page)
{
    const int rv = phy_set(mdio, kPageRegister, page);
    return log_failure_as(caller, rv, "Failed to set page on mdio %d: %s\n", mdio, sdk_text(rv));
}

// Runs `access` with the clock page selected, and then always restores the page. Returns 0 or DDAL_ERR_FAILURE.
template <typename Access>
int on_clock_page(const char *caller, int mdio, Access access)
{
    uint32_t page = 0;
    const int rv = phy_get(mdio, kPageRegister, &page);
    if (rv != BCM_E_NONE)
        return log_error_as(caller, DDAL_ERR_FAILURE, "Failed to retrieve page on mdio %d: %s\n", mdio, sdk_text(rv));
    if (set_page(caller, mdio, kMarvellClockPage) != 0)
        return DDAL_ERR_FAILURE;
    const int rc = access();
    return set_page(caller, mdio, page) != 0 ? DDAL_ERR_FAILURE : rc;
}

int read_clock_register(const char *caller, uint32_t port, int mdio, uint32_t *data)
{
    const int rv = phy_get(mdio, kMarvellClockRegister, data);
    if (rv == BCM_E_NONE)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "Reading recovered clock failed on port %u: %s\n", port,
                        sdk_text(rv));
}

} // namespace

int ddal_bcm_write_ext_phy_register(uint32_t port, uint32_t reg, uint16_t value)
{
    if (check_port(__func__, port) != 0 || check_copper(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    const int rv = phy_set(mdio_address(port), reg, value);
    if (rv != BCM_E_NONE)
        return log_error(DDAL_ERR_FAILURE, "Writing PHY register %u failed on port %u: %s\n", reg, port, sdk_text(rv));
    return 0;
}

int ddal_bcm_read_ext_phy_register(uint32_t port, uint32_t reg, uint16_t *value)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, value) != 0 || check_copper(__func__, port) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    uint32_t data = 0;
    const int rv = phy_get(mdio_address(port), reg, &data);
    if (rv != BCM_E_NONE)
        return log_error(DDAL_ERR_FAILURE, "Reading PHY register %u failed on port %u: %s\n", reg, port, sdk_text(rv));
    *value = static_cast<uint16_t>(data);
    return 0;
}

int ddal_bcm_set_phy_loopback(uint32_t port, uint32_t enable)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_loopback_set, enable ? BCM_PORT_LOOPBACK_PHY : BCM_PORT_LOOPBACK_NONE) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u PHY loopback set error\n", port);
    return 0;
}

int ddal_bcm_get_phy_loopback(uint32_t port, uint32_t *state)
{
    if (open_port_for(__func__, port, state, "state is NULL") != 0)
        return DDAL_ERR_FAILURE;

    int loopback = 0;
    if (sdk_on_port(port, bcm_port_loopback_get, &loopback) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u PHY loopback get error\n", port);
    *state = loopback == BCM_PORT_LOOPBACK_PHY;
    return 0;
}

int ddal_bcm_set_mdix(uint32_t port, uint32_t mode)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    for (const CrossoverMode &crossover : kCrossoverModes) {
        if (crossover.mode != mode)
            continue;
        if (open_bcm_switch() != 0)
            return DDAL_ERR_FAILURE;
        if (sdk_on_port(port, bcm_port_mdix_set, crossover.sdk) != 0)
            return log_error(DDAL_ERR_FAILURE, "port %u crossover mode set error\n", port);
        return 0;
    }
    return log_error(DDAL_ERR_FAILURE, "unsupported DDAL crossover mode %d\n", static_cast<int>(mode));
}

int ddal_bcm_get_mdix(uint32_t port, uint16_t *mode)
{
    if (open_port_for(__func__, port, mode, "mode is NULL") != 0)
        return DDAL_ERR_FAILURE;

    bcm_port_mdix_t sdk = BCM_PORT_MDIX_AUTO;
    if (sdk_on_port(port, bcm_port_mdix_get, &sdk) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u crossover mode get error\n", port);
    for (const CrossoverMode &crossover : kCrossoverModes) {
        if (crossover.sdk == sdk) {
            *mode = crossover.mode;
            return 0;
        }
    }
    return log_error(DDAL_ERR_FAILURE, "invalid crossover mode %d on port %u\n", static_cast<int>(sdk), port);
}

int ddal_bcm_set_master_slave(uint32_t port, uint32_t mode)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    const bool multi_port_choice = mode == kPreferMultiPort || mode == kPreferSinglePort;
    if (mode > BCM_PORT_MS_AUTO && !multi_port_choice)
        return log_error(DDAL_ERR_FAILURE, "unsupported DDAL master/slave mode %d\n", static_cast<int>(mode));
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    // The first three modes have the numbers of the SDK.
    const int rv = multi_port_choice
                       ? sdk_on_port(port, bcm_port_phy_modify, BCM_PORT_PHY_CLAUSE45, kMirroredGigabitControl,
                                     mode == kPreferMultiPort ? kMultiPort : 0, kMultiPort)
                       : sdk_on_port(port, bcm_port_master_set, mode);
    return rv == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "port %u master/slave mode set error\n", port);
}

int ddal_bcm_get_master_slave(uint32_t port, uint16_t *is_master)
{
    if (open_port_for(__func__, port, is_master, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    uint32_t status = 0;
    uint32_t gigabit = 0;
    if (sdk_on_port(port, bcm_port_phy_get, BCM_PORT_PHY_CLAUSE45, kMirroredStatus, &status) != 0 ||
        sdk_on_port(port, bcm_port_phy_get, BCM_PORT_PHY_CLAUSE45, kMirroredGigabitStatus, &gigabit) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u master/slave get error\n", port);
    // Without a link nothing is resolved, and the bit still shows the last link.
    *is_master = (status & kLinkUp) && (gigabit & kResolvedMaster);
    return 0;
}

int ddal_bcm_get_master_slave_configuration(uint32_t port, uint16_t *config, uint16_t *port_type)
{
    if (open_port_for(__func__, port, config && port_type, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    int master = 0;
    uint32_t control = 0;
    if (sdk_on_port(port, bcm_port_master_get, &master) != 0 ||
        sdk_on_port(port, bcm_port_phy_get, BCM_PORT_PHY_CLAUSE45, kMirroredGigabitControl, &control) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u master/slave configuration get error\n", port);
    if (master < BCM_PORT_MS_SLAVE || master > BCM_PORT_MS_AUTO)
        return log_error(DDAL_ERR_FAILURE, "invalid master/slave mode %d on port %u\n", master, port);
    *config = static_cast<uint16_t>(master);
    *port_type = static_cast<uint16_t>(control & kMultiPort ? kPreferMultiPort : kPreferSinglePort);
    return 0;
}

int ddal_bcm_get_rclk_freq(uint32_t port, uint16_t *code)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (!code)
        return log_error(DDAL_ERR_FAILURE, "frequency cannot be null\n");
    if (check_copper(__func__, port, -ENODEV) != 0)
        return -ENODEV;
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    const int mdio = mdio_address(port);
    uint32_t data = 0;
    // `__func__` must be read here: inside the lambda it names the lambda.
    const char *const caller = __func__;
    const auto read = [&] { return read_clock_register(caller, port, mdio, &data); };
    if (on_clock_page(caller, mdio, read) != 0)
        return DDAL_ERR_FAILURE;
    return reg_bits_to_frequency(data & kMarvellClockField, code);
}

int ddal_bcm_set_rclk_freq(uint32_t port, uint16_t code)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (check_copper(__func__, port, -ENODEV) != 0)
        return -ENODEV;
    uint32_t bits = 0;
    if (frequency_to_reg_bits(code, &bits) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    const int mdio = mdio_address(port);
    // `__func__` must be read here: inside the lambda it names the lambda.
    const char *const caller = __func__;
    return on_clock_page(caller, mdio, [&] {
        uint32_t data = 0;
        if (read_clock_register(caller, port, mdio, &data) != 0)
            return DDAL_ERR_FAILURE;
        const int rv = phy_set(mdio, kMarvellClockRegister, (data & ~kMarvellClockField) | bits);
        if (rv == BCM_E_NONE)
            return 0;
        return log_error_as(caller, DDAL_ERR_FAILURE, "Writing recovered clock failed on port %u: %s\n", port,
                            sdk_text(rv));
    });
}
