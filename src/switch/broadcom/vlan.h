// Bounds of VLAN numbers.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

constexpr uint32_t kHighestVlan = 4095;

constexpr int kKeepPriority = -1; // in an action: keeps a frame's PCP or the port's priority

// Returns 0, or DDAL_ERR_FAILURE logged under the caller's name.
int check_vlan(const char *caller, uint32_t vlan);

} // namespace ddal::ethswitch
