// Parser of firmware images in TI-TXT format.
#pragma once

#include <cstdint>

#include <ddal/bsl.h>

namespace ddal::bsl {

// Processes one byte of an image. Returns the new state.
int bsl_file_fsm(uint8_t byte);

// Releases everything that a parse has stored. Logs nothing.
void discard_image();

} // namespace ddal::bsl
