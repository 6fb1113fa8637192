// The port that receives a port's frames instead of the switch's normal forwarding.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

struct Redirection {
    bool exists = false;
    uint32_t dst_port = 0;
    uint32_t ethertype = 0; // 0: all frames
};

// Reads the redirection of a port. Returns 0 or the SDK's result, logged. A port without field entries is not
// redirected.
int read_redirection(uint32_t port, Redirection *redirection);

} // namespace ddal::ethswitch
