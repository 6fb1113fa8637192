// What an egress mask holds.
#pragma once

#include "switch/broadcom/port_bitmap.h"

namespace ddal::ethswitch {

// Whether a set bit of an egress mask keeps frames from leaving by its port, or lets only those of set bits leave. The
// SDK does not say; to be confirmed on the board, as the bring-up guide tells.
#ifndef DDAL_EGRESS_MASK_BLOCKS
#define DDAL_EGRESS_MASK_BLOCKS 1
#endif
constexpr bool kEgressMaskBlocks = DDAL_EGRESS_MASK_BLOCKS;

inline bcm_pbmp_t egress_mask_of(const bcm_pbmp_t &blocked)
{
    return kEgressMaskBlocks ? blocked : complement(blocked);
}

} // namespace ddal::ethswitch
