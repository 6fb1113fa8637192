// Sets of the switch's ports, and the eight words of 32 bits in which calls carry them.
#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <vector>

namespace vboard {

using SwitchWords = std::vector<int64_t>;

constexpr size_t kPortsOfSet = 256;
constexpr size_t kWordsOfSet = 8;
using PortSet = std::bitset<kPortsOfSet>;

inline PortSet port_set_of(const SwitchWords &words, size_t at)
{
    PortSet set;
    for (size_t i = kWordsOfSet; i-- > 0;)
        set = set << 32 | PortSet(static_cast<uint32_t>(words[at + i]));
    return set;
}

inline void append(SwitchWords *words, const PortSet &set)
{
    constexpr uint64_t kWord = 0xFFFFFFFF;
    for (size_t i = 0; i < kWordsOfSet; ++i)
        words->push_back(static_cast<int64_t>((set >> 32 * i & PortSet(kWord)).to_ullong()));
}

inline PortSet only(uint32_t port)
{
    return port < kPortsOfSet ? PortSet().set(port) : PortSet();
}

} // namespace vboard
