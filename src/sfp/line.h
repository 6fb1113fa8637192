// Control and status lines of the SFP cages.
#pragma once

#include <cstdint>

namespace ddal::sfp {

// Checks that `ctrl` can be set to `value`. Returns 0 if so.
int validate_sfp_ctrl_value(uint32_t ctrl, uint32_t value);

} // namespace ddal::sfp

// Reads up to 4 characters of a line attribute, always NUL-terminated.
int ddal_sfp_read_file(uint32_t sfpId, const char *attribute, char text[5]);

int ddal_sfp_write_file(uint32_t sfpId, const char *attribute, char character);
