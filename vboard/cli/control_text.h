// What `vboard ctl` says of its commands, made from their tables.
#pragma once

#include <string>

#include "command_line/completion.h"
#include "daemon/control.h"

namespace vboard {

// For `vboard ctl [MODEL] --help`. Throws ControlError for a name that no model has.
std::string control_help(const Words &words);
// The words that may follow those of a command, for completion.
command_line::Candidates control_candidates(const Words &words);

// All commands, for the manual page and for docs/virtual-board.md.
std::string control_manual();
std::string control_reference();

} // namespace vboard
