// The D-Bus object that reports the state of a link.
#include <ddal/phy.h>

#include <cerrno>
#include <cstdio>
#include <net/if.h>

#include "core/log.h"
#include "identity/boards.h"
#include "phy/association.h"
#include "phy/link_event.h"

using namespace ddal::phy;

namespace {

constexpr uint32_t kLinkEvent = 0;

struct Source {
    const char *bus_name;
    const char *bus_interface;
    const char *path; // without the number; D-Bus escapes its first digit as "_3" and the digit
    size_t path_size; // of the whole path in bytes, with room for three digits
    const char *number;
};

constexpr Source kLinuxInterface = {"org.freedesktop.network1", "org.freedesktop.network1.Link",
                                    "/org/freedesktop/network1/link/_3", 37, "ifindex"};
constexpr Source kBroadcomSwitch = {"com.broadcom.switch1", "com.broadcom.switch1.Link",
                                    "/com/broadcom/switch1/link/_3", 33, "port"};
constexpr Source kMarvellSwitch = {"com.marvell.switch1", "com.marvell.switch1.Link", "/com/marvell/switch1/link/_3",
                                   32, "port"};

// Returns the descriptor, or -1. Logs a path that cannot be built under the caller's name.
int watch(const char *caller, const Source &source, uint32_t number)
{
    char path[kLinuxInterface.path_size];
    static_assert(sizeof path >= kBroadcomSwitch.path_size && sizeof path >= kMarvellSwitch.path_size);
    const int length = snprintf(path, sizeof path, "%s%u", source.path, number);
    if (length < 0 || static_cast<size_t>(length) >= source.path_size)
        return log_error_as(caller, -1, "unable to construct object path with %s %d\n", source.number,
                            static_cast<int>(number));
    return _ddal_phy_event_register(source.bus_name, source.bus_interface, path);
}

// Result of a registration: the descriptor, -1, or below that the code to return.
struct Opened {
    int fd;
    int failure;
};

Opened open_switch_port(const char *caller, uint32_t phy_dev, int (*open_port)(uint32_t port))
{
    ddal_phy_association association{};
    const int rc = ddal_phy_get_association(phy_dev, &association);
    if (rc != 0) {
        log_line_as(LOG_ERR, caller, "failed to get association for dev: %d\n\n", static_cast<int>(phy_dev));
        return {-1, rc};
    }
    return {open_port(static_cast<uint32_t>(association.switch_port)), 0};
}

Opened open_link(const char *caller, uint32_t phy_dev)
{
    if (ddal::identity::this_board().broadcom_switch)
        return open_switch_port(caller, phy_dev, ddal_phy_event_register_broadcom_switch);

    Interface found{};
    const int rc = find_interface(caller, phy_dev, &found);
    if (rc != 0)
        return {-1, rc};
    if (carries_external_switch(found.dev_id))
        return open_switch_port(caller, phy_dev, ddal_phy_event_register_marvell_switch);
    return {ddal_phy_event_register_linux_interface(found.name), 0};
}

} // namespace

int ddal_phy_event_register_linux_interface(const char *ifname)
{
    const unsigned index = ifname ? if_nametoindex(ifname) : 0;
    if (index == 0)
        return log_error(-1, "unable to construct object path with ifindex %d\n", static_cast<int>(index));
    return watch(__func__, kLinuxInterface, index);
}

int ddal_phy_event_register_broadcom_switch(uint32_t port)
{
    return watch(__func__, kBroadcomSwitch, port);
}

int ddal_phy_event_register_marvell_switch(uint32_t port)
{
    return watch(__func__, kMarvellSwitch, port);
}

int ddal_phy_copper_event_open(uint32_t phy_dev, uint32_t event, int *fd)
{
    if (event != kLinkEvent)
        return log_error(-EINVAL, "unsupported PHY event: %d\n", static_cast<int>(event));
    if (!fd)
        return log_error(-EINVAL, "null phy_fd parameter\n");
    const Opened opened = open_link(__func__, phy_dev);
    if (opened.failure != 0)
        return opened.failure;
    if (opened.fd < 0)
        return log_error(DDAL_ERR_FAILURE, "failed to create event socket for phy dev: %d\n",
                         static_cast<int>(phy_dev));
    *fd = opened.fd;
    return 0;
}

int ddal_phy_copper_event_get(int fd, uint16_t *state)
{
    return ddal_phy_event_retrieve(fd, state);
}

int ddal_phy_copper_event_close(int fd)
{
    return ddal_phy_event_unregister(fd);
}
