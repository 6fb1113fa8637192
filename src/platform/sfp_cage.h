// The cage that serves an SFP identifier on this board.
#pragma once

#include "platform/sfp_table.h"

namespace ddal::platform {

// Null for an unknown identifier; only a known one makes the board type be read.
const SfpCage *find_sfp_cage(uint32_t sfpId);

} // namespace ddal::platform
