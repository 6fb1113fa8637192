// Shared parts of the commands on backhaul ports: the argument for a PHY device, and the texts of its failures.
#pragma once

#include <cstdint>

#include "ddalctl/command.h"
#include "ddalctl/failure.h"

namespace ddalctl {

inline constexpr uint32_t kPhyDevices = 5;
inline const Argument kPhyDevice = {"DEVICE", Kind::number, "PHY device, 0 to 4; \"ddalctl phy list\" lists them",
                                    false, kPhyDevices - 1};

// Throws a Failure that names the next step, unless the result is 0.
void require_phy(int result);

} // namespace ddalctl
