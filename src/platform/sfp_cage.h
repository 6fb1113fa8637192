// The cage that serves an SFP identifier on this board.
#pragma once

#include "platform/sfp_table.h"

namespace ddal::platform {

// Finds the cage of a known identifier by the board type. Returns null for an unknown one, without reading the board
// type.
const SfpCage *find_sfp_cage(uint32_t sfpId);

} // namespace ddal::platform
