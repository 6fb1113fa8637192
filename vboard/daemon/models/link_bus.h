// A private message bus of the board, with the link objects of the network and switch services.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>

#include "daemon/models/links.h"

struct sd_bus;

namespace vboard {

// States by object path.
struct LinkStates {
    std::map<std::string, std::string> told;
    std::map<std::string, std::string> missed; // changes whose signal was lost: only reading the property shows them
};

class LinkBus {
public:
    // Programs find the bus by its socket in the board's folder.
    explicit LinkBus(Board &board);
    ~LinkBus();
    LinkBus(const LinkBus &) = delete;
    LinkBus &operator=(const LinkBus &) = delete;

    // Starts the bus and the services on it. Throws when this machine has no dbus-daemon.
    void start();
    void stop();
    bool is_running() const { return bus_; }

    void set_state(LinkKind kind, uint32_t number, const std::string &state);
    // Changes a link unnoticed by a client that has just read all properties. Lasts until the next state.
    void miss(LinkKind kind, uint32_t number, const std::string &state);
    void leave(LinkKind kind);
    void come_back(LinkKind kind);
    std::string state(LinkKind kind, uint32_t number) const;
    int64_t last_change_ns() const { return last_change_ns_; }

private:
    void start_daemon();
    void connect();
    void add_services();

    Board &board_;
    std::string path_;
    pid_t daemon_ = -1;
    sd_bus *bus_ = nullptr;
    LinkStates states_;
    int64_t last_change_ns_ = 0;
};

} // namespace vboard
