// Settings and flags of one network interface.
#pragma once

#include <cstdint>
#include <linux/ethtool.h>

#include "core/unique_fd.h"

namespace ddal::phy {

class InterfaceControl {
public:
    explicit InterfaceControl(const char *ifname);

    // False, with errno, if there is no socket to ask through.
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

// Prints the text of errno to standard error, as these settings report their failures. Yields -1001.
int print_failure(const char *text);

} // namespace ddal::phy

// Bring an interface up or down. 0 or -1001.
int ddal_ifconfig_up(const char *ifname);
int ddal_ifconfig_down(const char *ifname);
