// Shared device mappings whose virtual addresses fit 32 bits, as the drivers of the queue manager need them.
#pragma once

#include <cstdint>
#include <sys/types.h>

namespace ddal::dsp {

// Maps `size` bytes of the device read-write at `offset`. Returns the address, or 0 with errno.
uint32_t map_below_4gib(int fd, off_t offset, uint32_t size);
void unmap_below_4gib(uint32_t address, uint32_t size);

} // namespace ddal::dsp
