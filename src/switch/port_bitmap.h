// Sets of ports, as the switch SDK takes them.
#pragma once

#include <cstdint>

#include "switch/sdk.h"

namespace ddal::ethswitch {

constexpr uint32_t kBitmapWordBits = 32;

// `port` is at most 255.
inline bcm_pbmp_t bitmap_of(uint32_t port)
{
    bcm_pbmp_t bitmap{};
    bitmap.pbits[port / kBitmapWordBits] = 1U << port % kBitmapWordBits;
    return bitmap;
}

inline bool holds_port(const bcm_pbmp_t &bitmap, uint32_t port)
{
    return (bitmap.pbits[port / kBitmapWordBits] >> port % kBitmapWordBits & 1) != 0;
}

} // namespace ddal::ethswitch
