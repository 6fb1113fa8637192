// The modules recorded as byte files, and a way to plug them into a cage.
#pragma once

#include <string>

#include <ddal/sfp.h>

#include "support/board.h"

namespace testing_board {

inline void plug(int cage, const std::string &module)
{
    ctl("sfp plug " + std::to_string(cage) + " dump " SFP_MODULES "/" + module);
}

} // namespace testing_board
