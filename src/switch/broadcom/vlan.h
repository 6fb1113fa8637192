// Bounds of VLAN numbers.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

constexpr uint32_t kHighestVlan = 4095;

constexpr int kKeepPriority = -1; // in an action: a frame's PCP, or the port's priority, stays

// 0, or -1001 logged under the caller's name.
int check_vlan(const char *caller, uint32_t vlan);

} // namespace ddal::ethswitch
