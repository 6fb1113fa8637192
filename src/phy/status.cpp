// State of copper links.
#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <net/if.h>

#include "core/log.h"
#include "phy/interface_control.h"
#include "phy/route.h"

using namespace ddal::phy;

static_assert(sizeof(ddal_phy_copper_status) == 12);

namespace {

using enum Needs;
using enum Rule;

constexpr Served kGetStatus{{"copper get status", "ex_switch_phy_copper_get_status", kFitting, kPhys, "status"},
                            ddal_bcm_copper_get_status,
                            ex_switch_phy_copper_get_status};

} // namespace

int ddal_phy_copper_get_status(uint32_t phy_dev, struct ddal_phy_copper_status *status)
{
    Route route{__func__, phy_dev};
    if (const auto answer = route.ask_first(kGetStatus, status))
        return *answer;

    const char *const ifname = route.found().name;
    InterfaceControl control{ifname};
    if (!control)
        return log_error(DDAL_ERR_FAILURE, "socket creation failure\n");
    short flags = 0;
    if (control.get_flags(&flags) != 0)
        return log_error(DDAL_ERR_FAILURE, "cannot get flags from interface <%s>\n", ifname);
    *status = {0, uint32_t{DDAL_PHY_UNKNOWN}, uint32_t{DDAL_PHY_UNKNOWN}};
    if (!(flags & IFF_UP))
        return 0;

    status->link = 1;
    if (const auto answer = route.ask_behind_interface(kGetStatus, status))
        return *answer;

    ethtool_cmd settings{};
    if (control.get_settings(&settings) != 0)
        return log_error(DDAL_ERR_FAILURE, "ioctl failure for ETHTOOL_GSET\n");
    status->speed = ethtool_cmd_speed(&settings);
    status->duplex = settings.duplex;
    uint32_t link = 0;
    if (control.get_link(&link) != 0)
        return log_error(DDAL_ERR_FAILURE, "ioctl failure for ETHTOOL_GLINK\n");
    status->link = link == 1;
    return 0;
}
