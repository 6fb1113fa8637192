// Which interface, SoC port, backhaul port and switch port a PHY device number stands for.
#pragma once

#include <cstddef>
#include <cstdint>

struct ddal_phy_association;

namespace ddal::phy {

constexpr uint32_t kBackhaul3Device = 3; // the PHY device that a switch may serve
constexpr uint32_t kMbo2500BhPort = 3;   // the backhaul port of the MBO board that can have a 2.5G PHY
constexpr size_t kNameSize = 16;

// Fitting of backhaul port 3 in the device tree
constexpr uint32_t kFittedSwitchPort = 0x20;
constexpr uint32_t kFittedCopper = 0x40;

// Cached backhaul types
constexpr uint32_t kTypeUnset = UINT32_MAX;
constexpr uint32_t kTypeMarvellPort3 = 2;
constexpr uint32_t kTypeMboGigabit = 6;
constexpr uint32_t kTypeMbo2500 = 7;

struct Interface {
    char name[kNameSize];
    uint32_t dev_id; // number of the SoC's Ethernet port
};

// Name and number of a PHY device's interface; the last line of a failure appears under the caller's name. 0 or -1001.
int find_interface(const char *caller, uint32_t phy_dev, Interface *found);

// Whether the SoC port of an interface carries an external multiport switch.
bool carries_external_switch(uint32_t dev_id);

// The backhaul type of the system-information store, read once. After a failure *type is kTypeUnset.
int get_cached_bh_type(uint32_t *type);

// The association on the MBO board. 0 or -ENODEV.
int mbo_board_association_set(uint32_t phy_dev, ddal_phy_association *association);

// The SoC port of an interface. 0 or -1001.
int ifdev2soc(uint32_t dev_id, uint32_t *soc_port);

// The backhaul port that the store's value names. 0 or -1001.
int bh_eth2bh_port(uint64_t value, uint32_t *bh_port);

// 0 if the PHY behind a device and its interface is copper, else -1001. The interface does not count on the MBO board.
int is_interface_copper(uint32_t phy_dev, uint32_t dev_id);

} // namespace ddal::phy

// The network interface of a PHY device. 0 or -1001.
int ddal_phy_iface2ifname(uint32_t phy_dev, char *ifname, size_t size);
