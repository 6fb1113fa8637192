// The network namespace of a run.
#pragma once

namespace vboard {

// Moves this process and its later children into a new network namespace, in which "lo" is the only interface and is
// up. Throws when the namespace cannot be created; the caller must then run nothing.
void enter_own_network();

} // namespace vboard
