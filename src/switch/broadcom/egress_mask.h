// Content of an egress mask.
#pragma once

#include "switch/broadcom/port_bitmap.h"

namespace ddal::ethswitch {

// Selects whether a set bit of an egress mask blocks its port, or whether frames leave only by ports with set bits. The
// SDK does not say which. To be confirmed on the board, as the bring-up guide describes.
#ifndef DDAL_EGRESS_MASK_BLOCKS
#define DDAL_EGRESS_MASK_BLOCKS 1
#endif
constexpr bool kEgressMaskBlocks = DDAL_EGRESS_MASK_BLOCKS;

inline bcm_pbmp_t egress_mask_of(const bcm_pbmp_t &blocked)
{
    return kEgressMaskBlocks ? blocked : complement(blocked);
}

} // namespace ddal::ethswitch
