// Clock channels of the switch's ports.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// 0, or -1001 for a port without a clock channel.
int port2channel(uint32_t port, uint32_t *channel);

} // namespace ddal::ethswitch
