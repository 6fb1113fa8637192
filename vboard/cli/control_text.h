// What `vboard ctl` says of its commands, made from their tables.
#pragma once

#include <string>

#include "daemon/control.h"

namespace vboard {

// For `vboard ctl [MODEL] --help`. Throws ControlError for a name that no model has.
std::string control_help(const Words &words);
// The words that may follow, one a line, for completion.
std::string control_completion(const std::string &words);

// All commands, for the manual page and for docs/virtual-board.md.
std::string control_manual();
std::string control_reference();

// `text` as a manual page has it.
std::string roff(const std::string &text);

} // namespace vboard
