// The recovered-clock field of the copper ports' PHY.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// Converts the field to a code, and back. Returns 0, or DDAL_ERR_FAILURE for a value without a counterpart.
int reg_bits_to_frequency(uint32_t bits, uint16_t *code);
int frequency_to_reg_bits(uint16_t code, uint32_t *bits);

} // namespace ddal::ethswitch
