// Completion of the command line. The arguments' rows give the words.
#pragma once

#include <string>
#include <vector>

namespace ddalctl {

// Returns the lines for the scripts of command_line/completion.h: the words that may stand for the last of `words`, the
// words after the program's name.
std::string completions(const std::vector<std::string> &words);

} // namespace ddalctl
