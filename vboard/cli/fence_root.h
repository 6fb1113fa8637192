// The root directory inside a fence: the board's folders beside the read-only ones of this machine.
#pragma once

#include "cli/walls.h"

namespace vboard {

// Replaces the root of this mount namespace. Each folder that shows only the board's files (rules.h) is mounted from
// the board, so that system calls which the preload library does not see reach these files as well. A folder that holds
// a needed path stays the machine's. Throws FenceError.
void replace_root(const FencePlan &plan);

} // namespace vboard
