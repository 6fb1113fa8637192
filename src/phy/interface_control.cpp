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

namespace {

// The settings report their failures only on standard error.
int print_failure(const char *text)
{
    perror(text);
    return DDAL_ERR_FAILURE;
}

// Sets the flags `set` and clears the flags `clear`.
int change_flags(const char *caller, const char *ifname, int set, int clear)
{
    InterfaceControl control{ifname};
    if (!control)
        return log_error_as(caller, DDAL_ERR_FAILURE, "opening socket failed\n");
    short flags = 0;
    if (control.get_flags(&flags) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "cannot get flags from interface <%s>\n", ifname);
    if (control.set_flags(static_cast<short>((flags | set) & ~clear)) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "cannot set flags for interface <%s>\n", ifname);
    return 0;
}

} // namespace

int InterfaceSettings::read(const char *text)
{
    if (!control_.emplace(ifname_))
        return print_failure("Unable to create socket");
    return control_->get_settings(&values) == 0 ? 0 : print_failure(text);
}

int InterfaceSettings::write(const char *text)
{
    return control_->set_settings(&values) == 0 ? 0 : print_failure(text);
}

} // namespace ddal::phy

int ddal_ifconfig_up(const char *ifname)
{
    log_line(LOG_WARNING, "bringing up interface %s\n", ifname);
    return ddal::phy::change_flags(__func__, ifname, IFF_UP, 0);
}

int ddal_ifconfig_down(const char *ifname)
{
    log_line(LOG_WARNING, "bringing down interface %s\n", ifname);
    return ddal::phy::change_flags(__func__, ifname, 0, IFF_UP);
}
