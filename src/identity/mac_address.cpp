// MAC addresses: the property of each network interface on each board type.
#include <ddal/devicetree.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include <ddal/common.h>

#include "core/log.h"
#include "identity/boards.h"
#include "identity/properties.h"

namespace {

using ddal::identity::Board;
using MacAddress = std::array<uint8_t, 6>;

struct MacSource {
    const char *ifname;
    const char *path;
    unsigned add; // to the 48-bit number
};

// The device node of eth1 carries all four ports.
#define NETCP_INTERFACE(n) "/sys/class/net/eth1/device/of_node/netcp-interfaces/interface-" #n "/local-mac-address"
constexpr const char *kBoardAddress = DDAL_BOARD_IDENTITY "/local-mac-address";

constexpr MacSource kFourPortSources[] = {
    {"eth0", NETCP_INTERFACE(2), 0},
    {"eth1", NETCP_INTERFACE(1), 0},
    {"eth2", kBoardAddress, 1},
    {"eth3", kBoardAddress, 2},
};
constexpr MacSource kSources[] = {
    {"eth0", NETCP_INTERFACE(0), 0},
    {"eth1", NETCP_INTERFACE(1), 0},
    {"eth3", NETCP_INTERFACE(3), 0},
};
constexpr MacSource kAlternateSources[] = {
    {"eth0", NETCP_INTERFACE(2), 0},
    {"eth1", NETCP_INTERFACE(1), 0},
    {"eth3", NETCP_INTERFACE(0), 0},
};

constexpr const char kVirtualPrefix[] = "virt";
constexpr size_t kVirtualPrefixLength = sizeof kVirtualPrefix - 1;
constexpr const char *kVirtualPool = "/proc/device-tree/virtual-mac-pool/virtual-mac";
constexpr size_t kVirtualPathSize = 70;

// Reports whether backhaul 3 has raw type 6 or 7: its port then takes the place of the first one.
bool is_alternate(const Board &board, uint32_t backhaul_3_type)
{
    return !board.broadcom_switch && (backhaul_3_type & ~UINT32_C(0x10)) == 0x60;
}

// Wraps from ff:ff:ff:ff:ff:ff to 00:00:00:00:00:00.
void add_to(MacAddress &mac, unsigned carry)
{
    for (auto byte = mac.rbegin(); byte != mac.rend() && carry != 0; ++byte) {
        carry += *byte;
        *byte = static_cast<uint8_t>(carry);
        carry >>= 8;
    }
}

int read_address(const char *path, unsigned add, uint8_t *mac)
{
    char text[std::tuple_size_v<MacAddress> + 1] = {}; // the reader ends the text with a NUL
    const int result = ddal_common_read_string(sizeof text, text, path);
    if (result != 0)
        return result;

    MacAddress address;
    memcpy(address.data(), text, address.size());
    add_to(address, add);
    memcpy(mac, address.data(), address.size());
    return 0;
}

int read_virtual_address(const char *suffix, uint8_t *mac)
{
    char directory[kVirtualPathSize];
    char path[kVirtualPathSize];
    // A name too long for the pool is cut and then not found.
    static_cast<void>(snprintf(directory, sizeof directory, "%s%s", kVirtualPool, suffix));
    if (snprintf(path, sizeof path, "%s/local-mac-address", directory) < 0)
        return -EINVAL;
    return read_address(path, 0, mac);
}

const MacSource *find_source(std::span<const MacSource> sources, const char *ifname)
{
    for (const MacSource &source : sources)
        if (strcmp(source.ifname, ifname) == 0)
            return &source;
    return nullptr;
}

} // namespace

int ddal_devicetree_get_mac_addr(uint32_t, const char *ifname, uint8_t mac[6])
{
    const Board &board = ddal::identity::this_board();
    std::span<const MacSource> sources = kFourPortSources;
    if (!board.has_eth2) {
        uint32_t backhaul_3_type = 0;
        const int result = ddal_devicetree_get_user_defined_a_backhaul_3_type(&backhaul_3_type);
        if (result != 0)
            return log_error(result, "ddal_devicetree_get_user_defined_a_backhaul_3_type failed:%d\n", result);
        sources = is_alternate(board, backhaul_3_type) ? std::span<const MacSource>{kAlternateSources}
                                                       : std::span<const MacSource>{kSources};
    }

    if (strncmp(ifname, kVirtualPrefix, kVirtualPrefixLength) == 0)
        return read_virtual_address(ifname + kVirtualPrefixLength, mac);

    const MacSource *source = find_source(sources, ifname);
    if (!source)
        return log_error(-ENODEV, "not supported interface name %s\n", ifname);
    return read_address(source->path, source->add, mac);
}
