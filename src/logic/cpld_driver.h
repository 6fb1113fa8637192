// The CPLD driver's register node: register address = file offset, 8-bit registers at multiples of 4.
#pragma once

#include <cstdint>

namespace ddal::logic {

inline constexpr const char *kCpldNode = "/dev/cpld-usr";
inline constexpr uint32_t kCpldRegisterAlignment = 4;
inline constexpr uint32_t kCpldRegisterMax = 0xFF;

} // namespace ddal::logic
