// Where a port's frames are sent in place of the switch's own forwarding.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

struct Redirection {
    bool exists = false;
    uint32_t dst_port = 0;
    uint32_t ethertype = 0; // 0: all frames
};

// 0 or the SDK's result, logged. Ports without field entries are not redirected.
int read_redirection(uint32_t port, Redirection *redirection);

} // namespace ddal::ethswitch
