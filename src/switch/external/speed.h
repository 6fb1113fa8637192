// Speeds in the registers of the external multiport switch and its PHYs.
#pragma once

#include <cstdint>
#include <iterator>

#include <ddal/phy.h>

#include "switch/external/registers.h"

namespace ddal::external {

struct SpeedRow {
    uint32_t speed;         // Mb/s
    uint16_t bits;          // in a control register
    uint32_t advertisement; // the register that advertises it
    uint16_t half;          // bits of its duplex modes there
    uint16_t full;
};

// A row's index is the code of its speed in a status register.
constexpr SpeedRow kSpeeds[] = {
    {10, 0, kAdvertisement, 0x0020, 0x0040},
    {100, kSpeed100, kAdvertisement, 0x0080, 0x0100},
    {1000, kSpeed1000, kGigabitControl, 0x0100, 0x0200},
};

inline const SpeedRow *find_speed(uint32_t speed)
{
    for (const SpeedRow &row : kSpeeds)
        if (row.speed == speed)
            return &row;
    return nullptr;
}

inline uint32_t speed_of_code(uint32_t code)
{
    return code < std::size(kSpeeds) ? kSpeeds[code].speed : DDAL_PHY_UNKNOWN;
}

inline uint32_t speed_of_bits(uint16_t control)
{
    return control & kSpeed1000 ? 1000 : control & kSpeed100 ? 100 : 10;
}

} // namespace ddal::external
