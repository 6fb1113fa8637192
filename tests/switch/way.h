// The ports by which frames leave the virtual switch.
#pragma once

#include <set>
#include <sstream>
#include <string>

#include "support/board.h"

namespace testing_board {

inline std::string frame_field(const std::string &line, const std::string &name)
{
    const size_t at = line.find(" " + name + "=");
    if (at == std::string::npos)
        return "";
    const size_t value = at + name.size() + 2;
    return line.substr(value, line.find(' ', value) - value);
}

// Returns the copies of a frame that enters at a port: "18 q0" without a tag, "18 5.3 q0" with VLAN and PCP, "all q0"
// or "all but 14, 18 q0" where most other ports send one.
inline std::string way(uint32_t port, const std::string &frame)
{
    constexpr uint32_t kPorts = 29;
    ctl("switch sent");
    ctl("switch send " + std::to_string(port) + " " + frame);
    std::istringstream copies(ctl("switch sent"));
    std::string text;
    std::string last;
    std::set<uint32_t> silent;
    for (uint32_t other = 1; other <= kPorts; ++other)
        silent.insert(other);
    silent.erase(port);
    const size_t others = silent.size();
    for (std::string line; std::getline(copies, line);) {
        const std::string tag = frame_field(line, "vlan");
        last = (tag.empty() ? "" : tag + "." + frame_field(line, "pcp") + " ") + "q" + frame_field(line, "queue");
        text += (text.empty() ? "" : ", ") + line.substr(0, line.find(':')) + " " + last;
        silent.erase(static_cast<uint32_t>(std::stoul(line)));
    }
    if (silent.size() > others / 2)
        return text;
    text = "all";
    for (const uint32_t other : silent)
        text += (text == "all" ? " but " : ", ") + std::to_string(other);
    return text + " " + last;
}

} // namespace testing_board
