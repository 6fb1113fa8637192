// Parser of firmware images in TI-TXT format.
#pragma once

#include <cstdint>

#include <ddal/bsl.h>

namespace ddal::bsl {

// One byte of an image; returns the new state.
int bsl_file_fsm(uint8_t byte);

// Gives back what a parse has stored, if anything, without a word.
void discard_image();

} // namespace ddal::bsl
