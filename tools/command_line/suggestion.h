// The word that a user may have meant.
#pragma once

#include <string>
#include <vector>

namespace command_line {

// Returns "; did you mean "stop"?", or nothing when no candidate is close.
std::string suggestion(const std::string &word, const std::vector<std::string> &candidates);

} // namespace command_line
