// The recovered-clock field of the copper ports' PHY.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// 0 or -1001 for a value that stands for no code, and back.
int reg_bits_to_frequency(uint32_t bits, uint16_t *code);
int frequency_to_reg_bits(uint16_t code, uint32_t *bits);

} // namespace ddal::ethswitch
