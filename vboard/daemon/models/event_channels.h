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
    int open(const Node &, uint32_t flags, UniqueFd end) override;
    static ControlTable commands();

private:
    Channels &channels_of(const std::string &path);
    void send_record(const Words &words);

    std::map<uint32_t, Channels> channels_; // by node
    uint32_t records_ = 0;
};

// rp3_alarm and refab_alarm. The RP3 alarm is announced only while its mask is not 0.
class Alarms : public Model {
public:
    using Model::Model;
    int open(const Node &, uint32_t flags, UniqueFd end) override;
    std::string text(const Node &) override;
    static ControlTable commands();

private:
    struct Alarm {
        uint32_t value = 0;
        Channels channels;
    };
    bool is_enabled(const std::string &path) const;
    void raise(const std::string &path, uint32_t value);

    std::map<uint32_t, Alarm> alarms_; // by node
};

} // namespace vboard
