// What the commands on backhaul ports share: how the user names a PHY device, and what its failures mean.
#pragma once

#include <cstdint>

#include "ddalctl/command.h"
#include "ddalctl/failure.h"

namespace ddalctl {

inline constexpr uint32_t kPhyDevices = 5;
inline const Argument kPhyDevice = {
    "DEVICE", Kind::number, "PHY device, 0 to 4; \"ddalctl phy list\" tells where each sits", false, kPhyDevices - 1};

// Throws a Failure that says what to do next, unless the result is 0.
void require_phy(int result);

} // namespace ddalctl
