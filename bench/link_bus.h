// A message bus with the switch's link service on it, as the library meets them on a board.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace bench {

constexpr unsigned kFirstPort = 1;
constexpr unsigned kPorts = 16;

class LinkBus {
public:
    // Starts a bus and the service, and lets the library find them. Ends the program, with the reason, if it cannot.
    LinkBus();
    ~LinkBus();
    LinkBus(const LinkBus &) = delete;
    LinkBus &operator=(const LinkBus &) = delete;

    // Lets the service change the link of a port, whatever it was.
    void change(unsigned port) const;
    // When the service put its last change of the port on the bus, in ns of the monotonic clock.
    int64_t changed_at(unsigned port) const { return times_[port]; }
    const std::string &address() const { return address_; }

private:
    void start_bus();
    void start_service();
    [[noreturn]] void serve(int requests);

    std::string folder_;
    std::string address_;
    pid_t bus_ = -1;
    pid_t service_ = -1;
    int requests_ = -1;
    std::atomic<int64_t> *times_; // by port; shared with the service
};

int64_t monotonic_ns();

} // namespace bench
