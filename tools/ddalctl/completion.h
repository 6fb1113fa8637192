#pragma once

#include <string>

namespace ddalctl {

// The script that teaches a shell to complete the commands. "bash" is the one shell known; throws WrongUse for another.
std::string completion_script(const std::string &shell);

} // namespace ddalctl
