// Whole text files.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace vboard {

// Returns what can be read of a file. A file in /proc ends with its process, at any byte.
inline std::string read_text(const std::filesystem::path &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf(); // an iterator would throw when a read fails
    return text.str();
}

} // namespace vboard
