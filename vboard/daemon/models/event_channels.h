// Event channels of the FPGAs' drivers that nothing but a control command moves: licensed-assisted access, and the
// alarm attributes of the main FPGA.
#pragma once

#include <map>

#include "daemon/channels.h"
#include "daemon/model.h"

namespace vboard {

// Records, pre-scan, DFS and SAS events, each on the node that the command names by the end of its path.
class Laa : public Model {
public:
    using Model::Model;
    int open(const Node &, uint32_t flags, Descriptor end) override;
    // record [words] | prescan <index> <byte> | dfs <index> <word> | sas <index|any> | short <node> <bytes> |
    // hang-up <node>
    std::string control(const Words &words) override;

private:
    Channels &channels_of(const std::string &path);

    std::map<uint32_t, Channels> channels_; // by node
    uint32_t records_ = 0;
};

// rp3_alarm and refab_alarm. The RP3 alarm is announced only while its mask is not 0.
class Alarms : public Model {
public:
    using Model::Model;
    int open(const Node &, uint32_t flags, Descriptor end) override;
    std::string text(const Node &) override;
    std::string control(const Words &words) override; // rp3|refab <value> | hang-up

private:
    struct Alarm {
        uint32_t value = 0;
        Channels channels;
    };
    bool is_enabled(const std::string &path) const;

    std::map<uint32_t, Alarm> alarms_; // by node
};

} // namespace vboard
