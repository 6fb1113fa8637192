// The oracle: a result is what happened.
#pragma once

#include <string>

#include "trial.h"

namespace campaign {

// The operation undisturbed. What differs between the first two is not compared.
struct Baseline {
    Outcome first, again;
    Outcome second_call; // of one process, for a call in a child
};

// What is wrong; empty when nothing is.
// `refuses` of the callers speaks of the usual board.
std::string judge_undisturbed(const Caller &caller, const Baseline &baseline, bool usual_board);
std::string judge(const Caller &caller, const Condition &condition, const Baseline &baseline, const Outcome &seen);

} // namespace campaign
