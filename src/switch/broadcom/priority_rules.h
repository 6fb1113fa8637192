// What the field entries say about priorities.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// Whether a rule keeps the PCP of the port's tagged frames, which tells DSCP mapping from PCP mapping. 0 or the SDK's
// result, logged.
int read_preserves_pcp(uint32_t port, bool *preserves);

} // namespace ddal::ethswitch
