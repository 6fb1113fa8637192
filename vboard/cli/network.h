// A network of a run's own.
#pragma once

namespace vboard {

// Moves this process, and with it all that it starts, into a new network namespace in which only "lo" is there and up.
// Throws when it cannot be made: then nothing may run that counts on it.
void enter_own_network();

} // namespace vboard
