// The next step after a failure.
#pragma once

#include <string>

namespace ddalctl {

class Failure;

// Returns the next step for a user of a command ("ffs mount"), or an empty text where none is known.
std::string hint_for(const std::string &command, const Failure &failure);

} // namespace ddalctl
