// The cage that serves an SFP identifier on this board.
#pragma once

#include "sfp/table.h"

namespace ddal::sfp {

// Finds the cage of a known identifier by the board type. Returns null for an unknown one, without reading the board
// type.
const SfpCage *find_sfp_cage(uint32_t sfpId);

} // namespace ddal::sfp
