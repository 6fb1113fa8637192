// Register lines of a link snapshot. Each appends its line to `text`, a buffer of `text_len` bytes that holds a string.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ddal::logic {

// Return 0, or DDAL_ERR_FAILURE without a line when the register cannot be read.
int sprintf_read_fpga_reg(char *text, size_t text_len, uint32_t address, const char *label, uint32_t *value);
int sprintf_read_k2_dsp_reg(char *text, size_t text_len, uint32_t address, const char *label, uint32_t *value);

// Reads the word at a physical address. Returns 0 or DDAL_ERR_FAILURE.
int read_value_from_map_addr(uint32_t address, uint32_t *value);

} // namespace ddal::logic
