// One block for the data of all records of an image, back to back.
#pragma once

#include <cstdint>

namespace ddal::bsl {

int master_buffer_init(uint32_t file_size); // returns 0 or -1
uint8_t *master_buffer_get();               // first byte behind the records
uint32_t master_buffer_left();              // bytes from there to the end
int master_buffer_alloc(uint32_t n);        // returns 0 or -1
void master_buffer_free();
bool master_buffer_held();

} // namespace ddal::bsl
