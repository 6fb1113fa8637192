// Sets of ports in the form of the switch SDK.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "switch/broadcom/sdk.h"

namespace ddal::ethswitch {

constexpr uint32_t kBitmapWordBits = 32;

// Returns the set of one port, which is at most 255.
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

inline void add_port(bcm_pbmp_t *bitmap, uint32_t port)
{
    bitmap->pbits[port / kBitmapWordBits] |= 1U << port % kBitmapWordBits;
}

inline bcm_pbmp_t complement(const bcm_pbmp_t &bitmap)
{
    bcm_pbmp_t others{};
    for (size_t word = 0; word < std::size(others.pbits); word++)
        others.pbits[word] = ~bitmap.pbits[word];
    return others;
}

inline bcm_pbmp_t every_port()
{
    return complement({});
}

inline bcm_pbmp_t every_port_but(uint32_t port)
{
    return complement(bitmap_of(port));
}

} // namespace ddal::ethswitch
