// Advertisement of the switch's ports to their partners.
#include <ddal/bcm.h>

#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kPauseBits = 0x3;       // both directions
constexpr uint32_t kAsymmetricPause = 0x4; // read only

struct Advertisement {
    uint32_t speed;   // Mb/s
    uint32_t ability; // the SDK's bit
    uint32_t reg;     // of a copper PHY; 0: the PHY lacks this speed
    uint32_t half;
    uint32_t full;
};

constexpr Advertisement kAdvertisements[] = {
    {10, 0x1, 4, 0x0020, 0x0040},    // register 4: auto-negotiation advertisement
    {100, 0x20, 4, 0x0080, 0x0100},  //
    {1000, 0x40, 9, 0x0100, 0x0200}, // register 9: 1000BASE-T control
    {2500, 0x80, 0, 0, 0},           //
    {10000, 0x800, 0, 0, 0},
};

// Returns the row of a speed that the port can advertise. Otherwise logs under the caller's name and returns null.
const Advertisement *find_advertisement(const char *caller, uint32_t port, uint32_t speed)
{
    for (const Advertisement &row : kAdvertisements) {
        if (row.speed == speed && (row.reg != 0 || !is_copper(port)))
            return &row;
    }
    return log_error_as(caller, nullptr, "unsupported DDAL speed ability %d\n", static_cast<int>(speed));
}

uint32_t *ability_word(bcm_port_ability_t *ability, uint32_t mode)
{
    return mode ? &ability->speed_full_duplex : &ability->speed_half_duplex;
}

uint32_t with_bits(uint32_t word, uint32_t bits, bool set)
{
    return set ? word | bits : word & ~bits;
}

int advertise_on_copper(const char *caller, uint32_t port, uint32_t reg, uint32_t bit, bool enable)
{
    const int rv =
        sdk_result(bcm_port_phy_modify, kUnit, mdio_address(port), BCM_PORT_PHY_NOMAP, reg, enable ? bit : 0, bit);
    if (rv != BCM_E_NONE)
        return log_error_as(caller, rv, "bcm_port_phy_modify failed on port %u: %s\n", port, sdk_text(rv));
    // A reset makes the PHY read its advertisement again.
    return copper_port_control_register_modify(port, kControlReset, kControlReset);
}

} // namespace

int ddal_bcm_set_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint32_t enable)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    const Advertisement *const row = find_advertisement(__func__, port, speed);
    if (!row || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    int rc = 0;
    if (is_copper(port)) {
        rc = advertise_on_copper(__func__, port, row->reg, mode ? row->full : row->half, enable);
    } else {
        bcm_port_ability_t ability{};
        rc = sdk_on_port(port, bcm_port_ability_advert_get, &ability);
        if (rc == 0) {
            uint32_t *const word = ability_word(&ability, mode);
            *word = with_bits(*word, row->ability, enable);
            rc = sdk_on_port(port, bcm_port_ability_advert_set, &ability);
        }
    }
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "port %u advertisement set error\n", port);
}

int ddal_bcm_get_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint16_t *enabled)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (!enabled)
        return log_error(DDAL_ERR_FAILURE, "data cannot be null\n");
    const Advertisement *const row = find_advertisement(__func__, port, speed);
    if (!row || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    if (is_copper(port)) {
        uint32_t data = 0;
        if (read_copper_register({__func__, __LINE__, "bcm_port_phy_get"}, port, row->reg, &data) != 0)
            return log_error(DDAL_ERR_FAILURE, "port %u advertisement get error\n", port);
        *enabled = (data & (mode ? row->full : row->half)) != 0;
        return 0;
    }

    bcm_port_ability_t ability{};
    if (sdk_on_port(port, bcm_port_ability_advert_get, &ability) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u advertisement get error\n", port);
    *enabled = (*ability_word(&ability, mode) & row->ability) != 0;
    return 0;
}

int ddal_bcm_get_config_advert_pause(uint32_t port, uint16_t *pause, uint16_t *asym_pause)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (!pause || !asym_pause)
        return log_error(DDAL_ERR_FAILURE, "data cannot be null\n");
    if (is_copper(port))
        return log_error(DDAL_ERR_FAILURE, "Error: must use ddal_phy_read instead for port %u\n", port);
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    bcm_port_ability_t ability{};
    if (sdk_on_port(port, bcm_port_ability_advert_get, &ability) != 0)
        return log_error(DDAL_ERR_FAILURE, "port %u pause advertisement get error\n", port);
    *pause = (ability.pause & kPauseBits) == kPauseBits;
    *asym_pause = (ability.pause & kAsymmetricPause) != 0;
    return 0;
}

int ddal_bcm_set_config_advert_pause(uint32_t port, uint32_t pause, uint32_t asym_pause)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    if (is_copper(port))
        return log_error(DDAL_ERR_FAILURE, "Error: must use ddal_phy_write instead for port %u\n", port);
    if (asym_pause) {
        log_line(LOG_WARNING, "Cannot set asymmetric pause directly for port %u\n", port);
        return DDAL_ERR_FAILURE;
    }
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    bcm_port_ability_t ability{};
    int rv = sdk_on_port(port, bcm_port_ability_advert_get, &ability);
    if (rv == BCM_E_NONE) {
        ability.pause = with_bits(ability.pause, kPauseBits, pause);
        rv = sdk_on_port(port, bcm_port_ability_advert_set, &ability);
    }
    return rv == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "port %u pause advertisement set error\n", port);
}
