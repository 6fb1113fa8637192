// Power of copper PHYs, and the CPLD lines that hold them in reset.
#include "phy/power.h"

#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>
#include <fcntl.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "phy/interface_control.h"
#include "phy/registers.h"
#include "phy/route.h"

using ddal::core::UniqueFd;
using namespace ddal::phy;

namespace {

using enum Needs;
using enum Rule;

constexpr char kReleased = '0';

struct ResetLine {
    uint32_t dev_id;
    const char *path;
};

constexpr ResetLine kResetLines[] = {
    {0, "/sys/class/cpld-usr/cpld-usr/bh_phy_reset"},
    {1, "/sys/class/cpld-usr/cpld-usr/bh_phy2_reset"},
    {3, "/sys/class/cpld-usr/cpld-usr/bh_phy3_reset"},
};

int switch_external_off(uint32_t port)
{
    return ex_switch_phy_copper_power(port, 0);
}

int switch_external_on(uint32_t port)
{
    return ex_switch_phy_copper_power(port, 1);
}

// clang-format off
constexpr Served kPowerDown{{"copper power down", "ex_switch_phy_copper_power", kFitting, kPhysAndCopper},
                            ddal_bcm_power_down, switch_external_off};
constexpr Served kPowerUp{{"copper power up", "ex_switch_phy_copper_power", kFitting, kPhysAndCopper},
                          ddal_bcm_power_up, switch_external_on};
// clang-format on

int release_reset(const char *caller, uint32_t dev_id)
{
    for (const ResetLine &line : kResetLines) {
        if (line.dev_id != dev_id)
            continue;
        char state = 0;
        ddal_phy_file_read(line.path, &state); // a failed read does not prevent the release of the line
        if (state == kReleased || ddal_phy_file_write(line.path, kReleased) == 0)
            return 0;
        return log_error_as(caller, DDAL_ERR_FAILURE, "writing to cpld file failed\n");
    }
    return log_error_as(caller, DDAL_ERR_FAILURE, "unsupported interface dev_id (%d)\n", static_cast<int>(dev_id));
}

} // namespace

int ddal_phy_file_read(const char *path, char *byte)
{
    const UniqueFd fd{open(path, O_RDONLY | O_CLOEXEC)};
    if (!fd)
        return log_errno("cannot open %s: %m\n", path);
    errno = 0;
    if (ddal_common_read_all(fd.get(), byte, 1) != 1)
        return log_errno_or(DDAL_ERR_FAILURE, "cannot read %s: %m\n", path);
    return 0;
}

int ddal_phy_file_write(const char *path, char byte)
{
    const UniqueFd fd{open(path, O_WRONLY | O_CLOEXEC)};
    if (!fd)
        return log_errno("cannot open %s: %m\n", path);
    errno = 0;
    if (ddal_common_write_all(fd.get(), &byte, 1) != 1)
        return log_errno_or(DDAL_ERR_FAILURE, "cannot write %s: %m\n", path);
    return 0;
}

int ddal_phy_copper_power_down(uint32_t phy_dev)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kPowerDown))
        return *answer;

    const char *const ifname = route.found().name;
    if (ddal_ifconfig_down(ifname) != 0)
        return log_error(DDAL_ERR_FAILURE, "ddal_ifconfig_down failed for interface 0x%x, ifname: %s\n", phy_dev,
                         ifname);
    uint16_t control = 0;
    const int rc = ddal_phy_read(phy_dev, kControl, 0, &control);
    if (rc != 0 || control & kControlPowerDown)
        return rc;
    return ddal_phy_write(phy_dev, kControl, 0, control | kControlPowerDown);
}

int ddal_phy_copper_power_up(uint32_t phy_dev)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask(kPowerUp))
        return *answer;
    if (const int rc = release_reset(__func__, route.found().dev_id))
        return rc;

    uint16_t control = 0;
    int rc = ddal_phy_read(phy_dev, kControl, 0, &control);
    if (rc != 0 || !(control & kControlPowerDown))
        return rc;
    rc = ddal_phy_write(phy_dev, kControl, 0, static_cast<uint16_t>(control & ~kControlPowerDown));
    if (rc != 0)
        return rc;

    ddal_phy_copper_status status{};
    if (ddal_phy_copper_get_status(phy_dev, &status) != 0)
        return log_error(DDAL_ERR_FAILURE, "unable to get link status\n");
    const char *const ifname = route.found().name;
    if (status.link != 1 && ddal_ifconfig_up(ifname) != 0)
        return log_error(DDAL_ERR_FAILURE, "Ifconfig up %s failed\n", ifname);
    return 0;
}
