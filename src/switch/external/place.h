// Where the external multiport switch sits: the way to its management bus, and its address there.
#pragma once

#include <cstdint>

namespace ddal::external {

enum class Way : uint8_t { kNodes = 1, kInterface = 2 };

// The address of a switch that answers at all addresses of its bus.
constexpr uint8_t kSingleChip = 0;

struct Place {
    Way way;
    uint8_t strap;     // kSingleChip, or the one address of a switch that shares its bus
    uint8_t interface; // number of the interface that owns the bus
    bool is_stored;    // the store names the way or the address: the switch has to be there
};

// Returns the name of the bus whose nodes lead to the switch.
const char *bus_name();

// Takes the place from the system-information store, and from what the kernel offers where the store names nothing.
// Returns 0, or DDAL_ERR_FAILURE after a line under the caller's name.
int find_place(const char *caller, Place *place);

} // namespace ddal::external
