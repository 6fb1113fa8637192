// Asks for consent before a change that cannot be undone.
#pragma once

#include <string>

#include "ddalctl/command.h"

namespace ddalctl {

inline const Argument kYes = {"--yes", Kind::flag, "skip the question"};

// Asks "<what>?" on the terminal unless kYes was given. Throws WrongUse when the user refuses, or when standard input
// is not a terminal.
void confirm(const Arguments &arguments, const std::string &what);

} // namespace ddalctl
