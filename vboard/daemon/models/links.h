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

    static ControlTable commands();

    // Starts the message bus, unless it was started or stopped before. Reports whether it runs.
    bool provide_bus();

    // What a link object says from here on.
    void publish(LinkKind kind, uint32_t number, const std::string &state);

private:
    struct Target {
        std::string kind;
        std::string name; // port or interface
        uint32_t dev_id = 0;
    };
    void plug(const Target &target, bool partner);
    bool has_link(const Target &target) const;
    Target &target_in(const Given &given);
    std::string show() const;

    std::map<std::string, Target> targets_;
    std::unique_ptr<LinkBus> bus_;
    bool is_bus_decided_ = false; // it was started or stopped before
};

} // namespace vboard
