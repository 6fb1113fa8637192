// The application's version block.
#pragma once

#include <cstdint>

namespace ddal::rf_card {

constexpr uint32_t kVersionLength = 8;

} // namespace ddal::rf_card
