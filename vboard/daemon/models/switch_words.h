// What the parts of the switch model share: results, checks and port numbers of its calls.
#pragma once

#include <initializer_list>

#include "daemon/models/switch.h"
#include "switch/broadcom/sdk.h"

namespace vboard {

constexpr uint32_t kMultiGigabitPort = 20;
constexpr int kMultiGigabitMdio = 0;
constexpr uint32_t kLastPort = 29;
constexpr uint32_t kFirstClockPort = 10;   // of the clock channels
constexpr int64_t kDefaultVlan = 4094;     // of frames that nothing else assigns; leaves the S-VLANs to the application
constexpr int64_t kLocalPort = 0x08000000; // what a gport adds to a port of this switch

// Results of the SDK
constexpr int kInternal = -1;
constexpr int kUnit = -3;
constexpr int kParameter = -4;
constexpr int kNotFound = -7;
constexpr int kExists = -8;
constexpr int kTimeOut = -9;
constexpr int kBusy = -10;
constexpr int kBadIdentifier = -13;
constexpr int kResource = -14;
constexpr int kConfiguration = -15;
constexpr int kUnavailable = -16;
constexpr int kPort = -18;

struct CopperPort {
    uint32_t port;
    int mdio;
};
constexpr CopperPort kCopperPorts[] = {{14, 1}, {16, 0}, {kMultiGigabitPort, kMultiGigabitMdio}};

inline SwitchWords done(std::initializer_list<int64_t> outputs = {})
{
    SwitchWords words{0};
    words.insert(words.end(), outputs);
    return words;
}

inline SwitchWords failed(int code)
{
    return {code};
}

// The text of a call in the list of calls.
inline std::string line_of(const std::string &name, const SwitchWords &in)
{
    std::string line = name;
    for (const int64_t word : in)
        line += " " + std::to_string(word);
    return line;
}

inline bool is_within(int64_t value, int64_t last)
{
    return value >= 0 && value <= last;
}

inline int64_t local_port(int64_t gport)
{
    return gport & kLocalPort ? gport & ~kLocalPort : gport;
}

} // namespace vboard
