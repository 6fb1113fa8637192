// Completion of the command line, made from its description and the tables of control commands.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace vboard {

// Returns the lines for the scripts of command_line/completion.h: the words that may stand for the last of `words`, the
// words after the program's name.
std::string completions(const CLI::App &app, const std::vector<std::string> &words);

} // namespace vboard
