// The manual page, made from the description of the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vboard {

std::string manual_page(const CLI::App &app);

} // namespace vboard
