// The kernel's driver for physical memory.
#pragma once

namespace ddal::board {

inline constexpr const char *kMemoryNode = "/dev/mem";

} // namespace ddal::board
