// Clock channels of the switch's ports.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// Stores a port's clock channel. Returns 0, or DDAL_ERR_FAILURE for a port without one.
int port2channel(uint32_t port, uint32_t *channel);

} // namespace ddal::ethswitch
