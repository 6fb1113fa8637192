// What the command line says of itself beyond --help, made from the command line's own description.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vboard {

std::string manual_page(const CLI::App &app);
std::string bash_completion(const CLI::App &app);

} // namespace vboard
