// Settings and flags of one network interface.
#pragma once

#include <cstdint>
#include <linux/ethtool.h>
#include <optional>

#include "core/unique_fd.h"

namespace ddal::phy {

class InterfaceControl {
public:
    explicit InterfaceControl(const char *ifname);

    // False with errno if the socket could not be opened.
    explicit operator bool() const { return static_cast<bool>(socket_); }

    // Each returns 0, or -1 with errno.
    int get_settings(ethtool_cmd *settings);
    int set_settings(ethtool_cmd *settings);
    int get_link(uint32_t *link);
    int get_flags(short *flags);
    int set_flags(short flags);

private:
    int ethtool(void *command);

    const char *ifname_;
    core::UniqueFd socket_;
};

// The settings of an interface. Reading and writing print failures; `text` is the text when the driver refuses. Both
// return 0 or DDAL_ERR_FAILURE.
class InterfaceSettings {
public:
    explicit InterfaceSettings(const char *ifname) : ifname_(ifname) {}
    int read(const char *text);
    int write(const char *text);

    ethtool_cmd values{};

private:
    const char *ifname_;
    std::optional<InterfaceControl> control_; // open since the settings were read
};

} // namespace ddal::phy

// Bring an interface up or down. Return 0 or DDAL_ERR_FAILURE.
int ddal_ifconfig_up(const char *ifname);
int ddal_ifconfig_down(const char *ifname);
