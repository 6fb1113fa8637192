// Consent before something that cannot be undone.
#pragma once

#include <string>

#include "ddalctl/command.h"

namespace ddalctl {

inline const Argument kYes = {"--yes", Kind::flag, "do it without asking"};

// Asks "<what>?" on the terminal unless kYes was given. Throws WrongUse when the user does not agree or cannot be
// asked.
void confirm(const Arguments &arguments, const std::string &what);

} // namespace ddalctl
