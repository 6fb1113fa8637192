// Front-panel LEDs.
#pragma once

#include <cstdint>

namespace ddal::platform {

// Stores in `*token` the text that sets `colour`.
int colour2brightness(uint32_t colour, const char **token);

// Opens the LED's attribute for reading and writing. Returns the descriptor or a negative code.
int open_ddal_led(uint32_t led_id);

int write_ddal_led(int fd, uint32_t led_id, const char *token);

// Boot hook: the PHYs lose the board-wide mode in a restart, while the CPLD keeps it.
int restore_led_global_state();

} // namespace ddal::platform
