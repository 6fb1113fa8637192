#pragma once

#include <string>

namespace ddalctl {

// The script that makes a shell complete the commands. Supports "bash"; throws WrongUse for another shell.
std::string completion_script(const std::string &shell);

} // namespace ddalctl
