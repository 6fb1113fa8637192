// The service manager's notification socket, with the checks that a service manager makes.
#pragma once

#include <string>
#include <sys/socket.h>

#include "daemon/model.h"

namespace vboard {

class ServiceManager : public Model {
public:
    using Model::Model;
    void start() override;

    static ControlTable commands();

private:
    void listen();
    void receive();
    void drain();
    void leave();
    std::string show();
    // Why a message is ignored; empty for a good one.
    static std::string fault_of(const std::string &text, bool cut, const ::ucred *sender);
    void take(const std::string &text);

    UniqueFd socket_;
    std::string log_;
    bool ready_ = false;
    unsigned pings_ = 0;
    unsigned ignored_ = 0;
};

} // namespace vboard
