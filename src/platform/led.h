// Front-panel LEDs.
#pragma once

#include <cstdint>

namespace ddal::platform {

// *token: the text that sets `colour`.
int colour2brightness(uint32_t colour, const char **token);

// The descriptor of the LED's attribute, open for reading and writing, or a negative code.
int open_ddal_led(uint32_t led_id);

int write_ddal_led(int fd, uint32_t led_id, const char *token);

// Boot hook: the PHYs lose the board-wide mode in a restart, the CPLD does not.
int restore_led_global_state();

} // namespace ddal::platform
