// The board's network interfaces: eth1 is a card with auto-negotiation, eth0 and eth3 are two ends of one link.
#pragma once

namespace rig {

bool make_interfaces();

// Takes an interface up or down.
bool set_up(const char *name, bool up);

} // namespace rig
