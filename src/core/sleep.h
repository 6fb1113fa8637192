// Sleeping.
#pragma once

#include <cstdint>

namespace ddal::core {

// Sleeps for the whole time, even when signals arrive.
void sleep_us(uint64_t microseconds);

} // namespace ddal::core
