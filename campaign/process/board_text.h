// Addresses of the board's libraries in this process. Their actions do not belong to the library under test.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace campaign {

struct TextRange {
    uintptr_t from, to;
};

inline const std::vector<TextRange> &board_text()
{
    static const std::vector<TextRange> ranges = [] {
        std::vector<TextRange> found;
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
            if (line.find("/libvboard") != std::string::npos) {
                const size_t dash = line.find('-');
                found.push_back(
                    {std::stoul(line.substr(0, dash), nullptr, 16), std::stoul(line.substr(dash + 1), nullptr, 16)});
            }
        return found;
    }();
    return ranges;
}

} // namespace campaign
