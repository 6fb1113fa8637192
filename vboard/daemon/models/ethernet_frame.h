// Ethernet frames as the switch model forwards them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "daemon/model.h"

namespace vboard {

struct VlanTag {
    uint16_t type = 0x8100;
    uint16_t vlan = 0;
    uint8_t pcp = 0;
};

struct EthernetFrame {
    uint64_t destination = 0;
    uint64_t source = 0;
    std::optional<VlanTag> outer;
    std::optional<VlanTag> inner;
    uint16_t type = 0;
    std::vector<uint8_t> payload;

    // One argument of hexadecimal digits, or "dst=ADDRESS src=ADDRESS vlan=N pcp=N tpid=N inner=N type=N dscp=N
    // payload=HEX", each of which may be left out. Throws ControlError.
    static EthernetFrame parse(const Words &words);

    // As parse takes it, without what the frame lacks.
    std::string text() const;

    // Octets on the line, checksum included.
    uint32_t length() const;

    bool is_multicast() const { return destination >> 40 & 1; }
    bool is_broadcast() const { return destination == 0xFFFFFFFFFFFF; }

    // The DSCP of an IPv4 or IPv6 packet.
    std::optional<uint8_t> dscp() const;
    void set_dscp(uint8_t dscp);
};

} // namespace vboard
