// Names of the standard registers of a PHY and of their bits (IEEE 802.3, clause 22).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ddalctl {

// The name of a register of the standard page, such as "basic status"; empty for those without a common meaning.
std::string phy_register_name(uint32_t number);

// The names of the bits that are set in its value, from bit 15 down.
std::vector<std::string> phy_register_bits(uint32_t number, uint16_t value);

} // namespace ddalctl
