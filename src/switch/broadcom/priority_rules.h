// Priorities in the field entries.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// Reports whether a rule keeps the PCP of the port's tagged frames, which distinguishes DSCP mapping from PCP mapping.
// Returns 0 or the SDK's result, logged.
int read_preserves_pcp(uint32_t port, bool *preserves);

} // namespace ddal::ethswitch
