// A message bus with the switch's link service, in the form of a board's.
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
    // Starts a bus and the service, and points the library to them. Ends the program with the reason on failure.
    LinkBus();
    ~LinkBus();
    LinkBus(const LinkBus &) = delete;
    LinkBus &operator=(const LinkBus &) = delete;

    // Makes the service change the link of a port, whatever its state.
    void change(unsigned port) const;
    // Returns the time of the service's last signal about the port, in ns of the monotonic clock.
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
