// The application's version block.
#pragma once

#include <cstdint>

namespace ddal::bsl {

constexpr uint32_t kVersionLength = 8;

} // namespace ddal::bsl
