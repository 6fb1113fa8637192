// The loaders that find the board's preload libraries.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vboard {

// A bit for each row of kLoaders. `prefix` is the installation, `libraries` the names of what is preloaded from it,
// `emulator` the command that starts programs of other processors.
uint32_t loaders_that_find(const std::filesystem::path &prefix, const std::vector<std::string> &libraries,
                           const std::vector<std::string> &emulator, uint16_t native_machine);

} // namespace vboard
