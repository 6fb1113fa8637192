// The links of the board: what is plugged where, and the D-Bus services that tell about it.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "daemon/model.h"

namespace vboard {

class LinkBus;

enum class LinkKind { kInterface, kBroadcom, kMarvell };

class Links : public Model {
public:
    explicit Links(Board &board);
    ~Links() override;
    void start() override;

    // <device> up|down                                     the cable of a PHY device
    // map <device> switch|multiport <port>                 what the device stands for
    // map <device> interface <name> <dev_id>
    // show
    // state network|broadcom|marvell <number> <text>       what the service says, whatever is plugged
    // missed network|broadcom|marvell <number> <text>      a change that its signal tells to nobody; until the next
    // state service network|broadcom|marvell leave|return bus stop|start stamp when the last change was put on the bus,
    // ns (CLOCK_MONOTONIC)
    std::string control(const Words &words) override;

    // What a link object says from here on.
    void publish(LinkKind kind, uint32_t number, const std::string &state);

private:
    struct Target {
        std::string kind;
        std::string name; // port or interface
        uint32_t dev_id = 0;
    };
    void map(const Words &words);
    void plug(const Target &target, bool partner);
    std::string show() const;

    std::map<std::string, Target> targets_;
    std::unique_ptr<LinkBus> bus_;
};

} // namespace vboard
