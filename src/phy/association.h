// The interface, SoC port, backhaul port and switch port of a PHY device number.
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

// Finds name and number of a PHY device's interface. Logs the last line of a failure under the caller's name. Returns 0
// or DDAL_ERR_FAILURE.
int find_interface(const char *caller, uint32_t phy_dev, Interface *found);

// Reports whether the SoC port of an interface connects an external multiport switch.
bool carries_external_switch(uint32_t dev_id);

// Returns the backhaul type of the system-information store, which is read once. After a failure *type is kTypeUnset.
int get_cached_bh_type(uint32_t *type);

// Stores the association on the MBO board. Returns 0 or -ENODEV.
int mbo_board_association_set(uint32_t phy_dev, ddal_phy_association *association);

// Stores the SoC port of an interface. Returns 0 or DDAL_ERR_FAILURE.
int ifdev2soc(uint32_t dev_id, uint32_t *soc_port);

// Stores the backhaul port for a value of the store. Returns 0 or DDAL_ERR_FAILURE.
int bh_eth2bh_port(uint64_t value, uint32_t *bh_port);

// Returns 0 if the PHY of a device and its interface is copper, else DDAL_ERR_FAILURE. Ignores the interface on the MBO
// board.
int is_interface_copper(uint32_t phy_dev, uint32_t dev_id);

} // namespace ddal::phy

// Copies the name of a PHY device's network interface. Returns 0 or DDAL_ERR_FAILURE.
int ddal_phy_iface2ifname(uint32_t phy_dev, char *ifname, size_t size);
