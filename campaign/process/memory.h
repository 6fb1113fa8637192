// The campaign's allocator, in front of libc's: counts blocks, and has one allocation fail.
#pragma once

namespace campaign {

// Counts from now on; the allocation `nth` (from 1, 0: none) fails.
void watch_memory(int nth);
// Stops counting. True when the allocation was asked for.
bool unwatch_memory();
// Blocks allocated and not freed since the count began; goes on after the watch.
long blocks_left();

} // namespace campaign
