// Tells what protects the machine from the programs of a board.
#pragma once

#include <string>

namespace vboard {

// `obstacle`: why there is no fence; empty with one. One line for each thing, or one JSON document.
std::string explanation(const std::string &obstacle, bool as_json);

// The table of docs/virtual-board.md.
std::string fence_reference();

} // namespace vboard
