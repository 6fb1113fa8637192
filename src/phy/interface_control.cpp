#include "phy/interface_control.h"

#include <cstdio>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "core/log.h"
#include "core/text.h"

static_assert(sizeof(ethtool_cmd) == 44 && sizeof(ethtool_value) == 8);

namespace ddal::phy {

namespace {

ifreq request_for(const char *ifname)
{
    ifreq request{};
    ddal_common_strlcpy(request.ifr_name, ifname, sizeof request.ifr_name);
    return request;
}

} // namespace

InterfaceControl::InterfaceControl(const char *ifname)
    : ifname_(ifname), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
}

int InterfaceControl::ethtool(void *command)
{
    ifreq request = request_for(ifname_);
    request.ifr_data = static_cast<char *>(command);
    return ioctl(socket_.get(), SIOCETHTOOL, &request);
}

int InterfaceControl::get_settings(ethtool_cmd *settings)
{
    *settings = {};
    settings->cmd = ETHTOOL_GSET;
    return ethtool(settings);
}

int InterfaceControl::set_settings(ethtool_cmd *settings)
{
    settings->cmd = ETHTOOL_SSET;
    return ethtool(settings);
}

int InterfaceControl::get_link(uint32_t *link)
{
    ethtool_value value{ETHTOOL_GLINK, 0};
    const int rc = ethtool(&value);
    *link = value.data;
    return rc;
}

int InterfaceControl::get_flags(short *flags)
{
    ifreq request = request_for(ifname_);
    const int rc = ioctl(socket_.get(), SIOCGIFFLAGS, &request);
    *flags = request.ifr_flags;
    return rc;
}

int InterfaceControl::set_flags(short flags)
{
    ifreq request = request_for(ifname_);
    request.ifr_flags = flags;
    return ioctl(socket_.get(), SIOCSIFFLAGS, &request);
}

int print_failure(const char *text)
{
    perror(text);
    return DDAL_ERR_FAILURE;
}

} // namespace ddal::phy

using namespace ddal::phy;

int ddal_ifconfig_up(const char *ifname)
{
    log_line(LOG_WARNING, "bringing up interface %s\n", ifname);
    InterfaceControl control{ifname};
    if (!control)
        return log_error(DDAL_ERR_FAILURE, "opening socket failed\n");
    short flags = 0;
    if (control.get_flags(&flags) != 0)
        return log_error(DDAL_ERR_FAILURE, "cannot get flags from interface <%s>\n", ifname);
    if (control.set_flags(static_cast<short>(flags | IFF_UP)) != 0)
        return log_error(DDAL_ERR_FAILURE, "cannot set flags for interface <%s>\n", ifname);
    return 0;
}

int ddal_ifconfig_down(const char *ifname)
{
    log_line(LOG_WARNING, "bringing down interface %s\n", ifname);
    InterfaceControl control{ifname};
    if (!control)
        return log_error(DDAL_ERR_FAILURE, "opening socket failed\n");
    short flags = 0;
    if (control.get_flags(&flags) != 0)
        return log_error(DDAL_ERR_FAILURE, "cannot get flags from interface <%s>\n", ifname);
    if (control.set_flags(static_cast<short>(flags & ~IFF_UP)) != 0)
        return log_error(DDAL_ERR_FAILURE, "cannot set flags for interface <%s>\n", ifname);
    return 0;
}
