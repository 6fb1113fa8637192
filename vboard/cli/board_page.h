// The page that every process of a board maps, and the facts of this machine that it holds.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "cli/launch.h"

namespace vboard {

// The installation that this program is part of.
std::filesystem::path own_prefix();
// The path of a program as a shell finds it; `name` itself when it finds none.
std::string find_program(const std::string &name);
// The folders of this machine in which programs may write.
std::vector<std::string> writable_places(const std::filesystem::path &directory, const RunOptions &options);
void write_page(const std::filesystem::path &directory, const RunOptions &options);

} // namespace vboard
