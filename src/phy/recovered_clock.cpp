#include "phy/recovered_clock.h"

#include <ddal/bcm.h>
#include <ddal/devicetree.h>
#include <ddal/phy.h>

#include <cerrno>
#include <iterator>

#include "core/log.h"
#include "identity/boards.h"
#include "phy/association.h"
#include "phy/registers.h"
#include "switch/broadcom/marvell_clock.h"

using namespace ddal::phy;
using ddal::ethswitch::find_marvell_clock;
using ddal::ethswitch::kMarvellClockField;
using ddal::ethswitch::kMarvellClockPage;
using ddal::ethswitch::kMarvellClockRegister;
using ddal::ethswitch::MarvellClock;

namespace {

constexpr uint16_t kCode25MHz = 2;

// Atheros: device 7, register 0x8016, reached through the standard registers 13 and 14. The row is the code.
constexpr uint16_t kMmdDevice = 0x0007;
constexpr uint16_t kMmdDeviceData = 0x4007;
constexpr uint16_t kMmdClockRegister = 0x8016;
constexpr uint16_t kAtherosField = 0x001C;
constexpr uint16_t kAtherosCodes[] = {0x00, 0x18, 0x04, 0x08, 0x0C, 0x10, 0x14, 0x1C};

struct Maker {
    uint32_t identity;
    int (*get)(uint32_t dev_id, uint16_t *code);
    int (*set)(uint32_t dev_id, uint16_t code);
};

constexpr uint32_t kIdentityMask = 0xFFFFFFF0; // without the revision
constexpr Maker kMakers[] = {
    {0x004DD070, ddal_phy_get_rclk_freq_atheros, ddal_phy_set_rclk_freq_atheros},
    {0x01410DD0, ddal_phy_get_rclk_freq_marvel, ddal_phy_set_rclk_freq_marvel},
};

// Maps register 14 to the clock register.
int address_atheros_clock(uint32_t dev_id)
{
    const bool addressed = ddal_phy_write_direct(dev_id, kMmdControl, 0, kMmdDevice) == 0 &&
                           ddal_phy_write_direct(dev_id, kMmdData, 0, kMmdClockRegister) == 0 &&
                           ddal_phy_write_direct(dev_id, kMmdControl, 0, kMmdDeviceData) == 0;
    return addressed ? 0 : DDAL_ERR_FAILURE;
}

} // namespace

namespace {

// A PHY of the MBO board.
struct MboPhy {
    uint32_t port; // port of the switch
    bool is_2500;
};

int find_mbo_phy(const char *caller, uint32_t phy_dev, MboPhy *phy)
{
    ddal_phy_association association{};
    const int rc = ddal_phy_get_association(phy_dev, &association);
    if (rc != 0)
        return log_error_as(caller, rc, "failed to get association for dev: %d\n", static_cast<int>(phy_dev));
    uint32_t type = kTypeUnset;
    if (association.bh_port == kMbo2500BhPort)
        get_cached_bh_type(&type);
    *phy = {static_cast<uint32_t>(association.switch_port), type == kTypeMbo2500};
    return 0;
}

int get_on_mbo(const char *caller, uint32_t phy_dev, uint16_t *code)
{
    MboPhy phy{};
    if (const int rc = find_mbo_phy(caller, phy_dev, &phy))
        return rc;
    if (phy.is_2500)
        *code = kCode25MHz;
    else if (ddal_bcm_get_rclk_freq(phy.port, code) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "MBO board get rclk frequency error: %d\n",
                            static_cast<int>(phy_dev));
    return 0;
}

int set_on_mbo(const char *caller, uint32_t phy_dev, uint16_t code)
{
    MboPhy phy{};
    if (const int rc = find_mbo_phy(caller, phy_dev, &phy))
        return rc;
    if (phy.is_2500 && code != kCode25MHz)
        return log_error_as(caller, DDAL_ERR_FAILURE, "only 25 Mhz supported for 2.5G PHY\n");
    if (!phy.is_2500 && ddal_bcm_set_rclk_freq(phy.port, code) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "MBO board set rclk frequency error: %d\n",
                            static_cast<int>(phy_dev));
    return 0;
}

// Reports whether the device has the clock of an external switch port, which is always 25 MHz. Returns 0 or
// DDAL_ERR_FAILURE.
int find_fixed_clock(const char *caller, uint32_t phy_dev, bool *fixed)
{
    *fixed = false;
    if (phy_dev < 2 || phy_dev > 4)
        return 0;
    uint32_t type = 0;
    if (ddal_devicetree_get_user_defined_a_backhaul_3_type(&type) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "Couldn't retrieve BH3 type\n");
    *fixed = type == kFittedSwitchPort;
    return 0;
}

// Finds the interface of a PHY device and the maker of its PHY. Returns 0, DDAL_ERR_FAILURE or -ENOSYS.
int find_maker(const char *caller, uint32_t phy_dev, uint32_t *dev_id, const Maker **maker)
{
    Interface found{};
    uint16_t high = 0;
    uint16_t low = 0;
    if (find_interface(caller, phy_dev, &found) != 0 || ddal_phy_read_direct(found.dev_id, kIdentity1, 0, &high) != 0 ||
        ddal_phy_read_direct(found.dev_id, kIdentity2, 0, &low) != 0)
        return DDAL_ERR_FAILURE;

    const uint32_t identity = (uint32_t{high} << 16 | low) & kIdentityMask;
    *dev_id = found.dev_id;
    for (const Maker &row : kMakers) {
        if (row.identity == identity) {
            *maker = &row;
            return 0;
        }
    }
    return log_error_as(caller, -ENOSYS, "not supported phy type\n");
}

} // namespace

int ddal_phy_get_rclk_freq_atheros(uint32_t dev_id, uint16_t *code)
{
    uint16_t data = 0;
    if (address_atheros_clock(dev_id) != 0 || ddal_phy_read_direct(dev_id, kMmdData, 0, &data) != 0)
        return DDAL_ERR_FAILURE;
    for (size_t i = 0; i < std::size(kAtherosCodes); i++) {
        if (kAtherosCodes[i] == (data & kAtherosField))
            *code = static_cast<uint16_t>(i); // the eight codes cover all values of the field
    }
    return 0;
}

int ddal_phy_set_rclk_freq_atheros(uint32_t dev_id, uint16_t code)
{
    if (code >= std::size(kAtherosCodes))
        return log_error(-EINVAL, "unsupported clock frequence received\n");
    uint16_t data = 0;
    if (address_atheros_clock(dev_id) != 0 || ddal_phy_read_direct(dev_id, kMmdData, 0, &data) != 0)
        return DDAL_ERR_FAILURE;
    data = static_cast<uint16_t>((data & ~kAtherosField) | kAtherosCodes[code]);
    if (ddal_phy_write_direct(dev_id, kMmdData, 0, data) != 0)
        return log_error(DDAL_ERR_FAILURE, "rclk frequency write failed\n");
    return 0;
}

int ddal_phy_get_rclk_freq_marvel(uint32_t dev_id, uint16_t *code)
{
    uint16_t data = 0;
    if (ddal_phy_read_direct(dev_id, kMarvellClockRegister, kMarvellClockPage, &data) != 0)
        return log_error(DDAL_ERR_FAILURE, "ddal_phy_read() failed\n");
    const MarvellClock *const clock = find_marvell_clock(&MarvellClock::bits, data & kMarvellClockField);
    if (!clock)
        return log_error(DDAL_ERR_FAILURE, "inconsistient device config, freq not set\n");
    *code = static_cast<uint16_t>(clock->code);
    return 0;
}

int ddal_phy_set_rclk_freq_marvel(uint32_t dev_id, uint16_t code)
{
    const MarvellClock *const clock = find_marvell_clock(&MarvellClock::code, code);
    if (!clock)
        return log_error(-ENOSYS, "selected frequency is not supported by the marvell chip\n");
    uint16_t data = 0;
    if (ddal_phy_read_direct(dev_id, kMarvellClockRegister, kMarvellClockPage, &data) != 0)
        return log_error(DDAL_ERR_FAILURE, "ddal_phy_read() failed\n");
    data = static_cast<uint16_t>((data & ~kMarvellClockField) | clock->bits);
    return ddal_phy_write_direct(dev_id, kMarvellClockRegister, kMarvellClockPage, data);
}

int ddal_phy_get_rclk_freq(uint32_t phy_dev, uint16_t *code)
{
    if (!code)
        return log_error(DDAL_ERR_FAILURE, "frequency points to null!\n");
    if (ddal::identity::this_board().broadcom_switch)
        return get_on_mbo(__func__, phy_dev, code);

    bool fixed = false;
    if (const int rc = find_fixed_clock(__func__, phy_dev, &fixed))
        return rc;
    if (fixed) {
        *code = kCode25MHz;
        return 0;
    }
    uint32_t dev_id = 0;
    const Maker *maker = nullptr;
    const int rc = find_maker(__func__, phy_dev, &dev_id, &maker);
    return rc != 0 ? rc : maker->get(dev_id, code);
}

int ddal_phy_set_rclk_freq(uint32_t phy_dev, uint16_t code)
{
    if (ddal::identity::this_board().broadcom_switch)
        return set_on_mbo(__func__, phy_dev, code);

    bool fixed = false;
    if (const int rc = find_fixed_clock(__func__, phy_dev, &fixed))
        return rc;
    if (fixed)
        return code == kCode25MHz ? 0 : DDAL_ERR_FAILURE;
    uint32_t dev_id = 0;
    const Maker *maker = nullptr;
    const int rc = find_maker(__func__, phy_dev, &dev_id, &maker);
    return rc != 0 ? rc : maker->set(dev_id, code);
}
