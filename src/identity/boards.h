// Differences between the board types, one row per type.
#pragma once

#include <cstddef>
#include <iterator>

#include <ddal/unit.h>

namespace ddal::identity {

struct Board {
    bool phys;                // its PHYs can be accessed
    bool broadcom_switch;     // its Ethernet ports are those of the Broadcom switch
    bool two_mdio_buses;      // its PHYs are on two buses
    bool crossed_ports;       // SoC port 0 leads to backhaul port 3 instead of 1
    bool sfp_on_i2c;          // both SFP cages have their memories on I2C buses instead of behind the CPLD
    bool upper_links;         // the upper pair of antenna links is wired instead of the lower
    bool small_rf_flash;      // the microcontroller of its RF card has the smaller flash
    bool has_eth2;            // it has four Ethernet ports
    bool backhaul_1_is_fixed; // regardless of its device tree
};

// Rows by board type. Row 0 is for a type that cannot be read.
// clang-format off
inline constexpr Board kBoards[] = {
    // phys switch buses  cross  i2c    upper  flash  eth2   fixed
    {true,  false, false, false, false, false, false, false, false}, // unknown
    {true,  false, false, false, false, false, false, false, false}, // DDAL_BOARD_TYPE_1
    {true,  false, false, false, false, false, false, false, false}, // DDAL_BOARD_TYPE_2
    {true,  false, false, false, false, false, false, false, false}, // DDAL_BOARD_TYPE_3
    {true,  false, true,  false, false, true,  false, false, false}, // DDAL_BOARD_TYPE_4
    {false, false, false, false, false, false, true,  true,  true},  // DDAL_BOARD_TYPE_5
    {true,  false, false, false, false, true,  false, false, false}, // DDAL_BOARD_TYPE_6
    {true,  false, false, true,  false, false, false, false, false}, // DDAL_BOARD_TYPE_7
    {true,  false, false, true,  true,  true,  false, false, false}, // DDAL_BOARD_TYPE_8
    {true,  true,  false, false, true,  true,  false, false, false}, // DDAL_BOARD_TYPE_MBO
};
// clang-format on
static_assert(std::size(kBoards) == DDAL_BOARD_TYPE_MBO + 1);

// Returns the row of a board type, which may be the negative code of a type that cannot be read.
constexpr const Board &board_of_type(int type)
{
    return kBoards[type > 0 && type <= DDAL_BOARD_TYPE_MBO ? type : 0];
}

// Returns the row of this board. Every call logs a type that cannot be read.
inline const Board &this_board()
{
    return board_of_type(ddal_unit_get_board());
}

} // namespace ddal::identity
