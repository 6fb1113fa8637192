// The network namespace of a run.
#pragma once

namespace vboard {

// Moves this process and its later children into a new network namespace, in which "lo" is the only interface and is
// up. Throws when the namespace cannot be created; the caller must then run nothing.
void enter_own_network();

// Puts "lo" of a new network namespace up.
bool bring_up_loopback();

} // namespace vboard
