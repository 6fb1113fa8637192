// Compares the result of a try with its effect.
#pragma once

#include <string>

#include "trial.h"

namespace campaign {

// The undisturbed operation. Differences between the first two runs are not compared.
struct Baseline {
    Outcome first, again;
    Outcome second_call; // of one process, as the reference for a call in a child
};

// Return the fault; empty without a fault. `refuses` of the callers holds for the usual board.
std::string judge_undisturbed(const Caller &caller, const Baseline &baseline, bool usual_board);
std::string judge(const Caller &caller, const Condition &condition, const Baseline &baseline, const Outcome &seen);

} // namespace campaign
