// The campaign's allocator in front of libc's: counts blocks and can fail one allocation.
#pragma once

namespace campaign {

// Starts to count. The allocation number `nth` (from 1, 0: none) fails.
void watch_memory(int nth);
// Stops counting. Returns true when the allocation was requested.
bool unwatch_memory();
// Returns the blocks allocated and not freed since the start of the count; continues after the watch.
long blocks_left();

} // namespace campaign
