// The field of Marvell copper PHYs that selects the frequency of the recovered clock.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

inline constexpr uint32_t kMarvellClockPage = 2;
inline constexpr uint32_t kMarvellClockRegister = 16;
inline constexpr uint32_t kMarvellClockField = 0x1C07;

struct MarvellClock {
    uint32_t code; // code of the operations that get and set the frequency
    uint32_t bits; // value of the field
};

inline constexpr MarvellClock kMarvellClocks[] = {{2, 0x0C01}, {1, 0x1C00}, {7, 0x1C01}};

// Return the row with a code or with a field value, or null if there is none.
constexpr const MarvellClock *find_marvell_clock(uint32_t MarvellClock::*key, uint32_t value)
{
    for (const MarvellClock &row : kMarvellClocks) {
        if (row.*key == value)
            return &row;
    }
    return nullptr;
}

} // namespace ddal::ethswitch
