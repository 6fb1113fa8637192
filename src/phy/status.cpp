// State of copper links.
#include <ddal/bcm.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>
#include <net/if.h>

#include "core/log.h"
#include "phy/interface_control.h"
#include "phy/route.h"

using namespace ddal::phy;

static_assert(sizeof(ddal_phy_copper_status) == 12);

namespace {

constexpr uint32_t kUnknown = UINT32_MAX;

} // namespace

int ddal_phy_copper_get_status(uint32_t phy_dev, struct ddal_phy_copper_status *status)
{
    if (!has_phy_access())
        return -ENOSYS;
    if (!status)
        return log_error(DDAL_ERR_FAILURE, "status is NULL\n");
    Route route{{__func__, "copper get status", "ex_switch_phy_copper_get_status", Rule::kFitting}, phy_dev};
    if (const int rc = route.find_first())
        return rc;
    if (route.back_end() == BackEnd::kBroadcom)
        return route.finish(ddal_bcm_copper_get_status(route.port(), status));

    const char *const ifname = route.interface().name;
    InterfaceControl control{ifname};
    if (!control)
        return log_error(DDAL_ERR_FAILURE, "socket creation failure\n");
    short flags = 0;
    if (control.get_flags(&flags) != 0)
        return log_error(DDAL_ERR_FAILURE, "cannot get flags from interface <%s>\n", ifname);
    *status = {0, kUnknown, kUnknown};
    if (!(flags & IFF_UP))
        return 0;

    status->link = 1;
    if (const int rc = route.find_behind_interface())
        return rc;
    if (route.back_end() == BackEnd::kMarvell)
        return route.finish(ex_switch_phy_copper_get_status(route.port(), status));

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
