// The microcontroller's TEST and RST lines.
#pragma once

#include <cstdint>

#include "rf_card/link.h"

namespace ddal::rf_card {

// Return 0 or BSL_ERR_PINS.
uint32_t bsl_drive_tst_rst(Clock &clock, uint32_t value, uint32_t pause_us);
uint32_t bsl_entry(Link &link);
uint32_t bsl_reset(Clock &clock);

} // namespace ddal::rf_card
