// Counts the allocations of this process, and makes one of them fail.
#pragma once

namespace campaign {

// Waits without end if its allocation fails: GLib's message about that enters it again.
inline constexpr const char *kWaitsForItself = "g_once_init_enter";

// Starts to count the blocks that are allocated and not freed.
void count_blocks();
long blocks_left();

// Watches the library's allocations until unwatch_memory(). The numbered one fails, unless the number is 0. `place`
// receives "GLib" or kWaitsForItself if GLib requested it.
void watch_memory(int nth, char *place);
// Returns true if the numbered allocation was requested.
bool unwatch_memory();

} // namespace campaign
