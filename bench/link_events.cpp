// Link events: from the signal on the bus to the readable descriptor, one at a time and on 16 descriptors at once,
// compared with a hand-written client that waits for the same signals in a separate thread.
#include <ddal/phy.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <vector>

#include "bench/link_bus.h"
#include "bench/row.h"

namespace {

constexpr int kEvents = 20'000;
constexpr int kLimitMs = 5000;

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "link_events: %s\n", what);
    exit(1);
}

struct Result {
    double per_second;
    double median_us;
    double late_us; // 99 of 100 arrive earlier
};

Result result_of(std::vector<int64_t> &delays, int64_t total_ns)
{
    std::sort(delays.begin(), delays.end());
    return {static_cast<double>(delays.size()) * 1e9 / static_cast<double>(total_ns),
            static_cast<double>(delays[delays.size() / 2]) / 1000,
            static_cast<double>(delays[delays.size() * 99 / 100]) / 1000};
}

// Keeps one change in progress for each port. `next` waits for an event and returns its port.
Result measure(const bench::LinkBus &bus, unsigned ports, const std::function<std::vector<unsigned>()> &next)
{
    std::vector<int64_t> delays;
    delays.reserve(kEvents + bench::kPorts);
    const int64_t start = bench::monotonic_ns();
    for (unsigned i = 0; i < ports; i++)
        bus.change(bench::kFirstPort + i);
    unsigned under_way = ports;
    while (under_way > 0) {
        for (const unsigned port : next()) {
            delays.push_back(bench::monotonic_ns() - bus.changed_at(port));
            under_way--;
            if (delays.size() + under_way < kEvents) {
                bus.change(port);
                under_way++;
            }
        }
    }
    return result_of(delays, bench::monotonic_ns() - start);
}

class LibraryClient {
public:
    explicit LibraryClient(unsigned ports)
    {
        for (unsigned i = 0; i < ports; i++) {
            const int fd = ddal_phy_event_register_broadcom_switch(bench::kFirstPort + i);
            if (fd < 0)
                fail("no link events");
            links_.push_back({fd, POLLIN, 0});
        }
        next(); // descriptors are readable from the start
    }
    ~LibraryClient()
    {
        for (const pollfd &link : links_)
            ddal_phy_event_unregister(link.fd);
    }
    LibraryClient(const LibraryClient &) = delete;
    LibraryClient &operator=(const LibraryClient &) = delete;

    std::vector<unsigned> next()
    {
        std::vector<unsigned> ports;
        if (poll(links_.data(), links_.size(), kLimitMs) <= 0)
            fail("an event did not come");
        for (size_t i = 0; i < links_.size(); i++) {
            if (links_[i].revents == 0)
                continue;
            uint16_t state = 0;
            if (ddal_phy_event_retrieve(links_[i].fd, &state) != 0)
                fail("a state was not told");
            ports.push_back(bench::kFirstPort + static_cast<unsigned>(i));
        }
        return ports;
    }

private:
    std::vector<pollfd> links_;
};

class HandWrittenClient {
public:
    HandWrittenClient()
    {
        if (sd_bus_open_system(&bus_) < 0 ||
            sd_bus_add_match(bus_, nullptr,
                             "type='signal',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'",
                             on_signal, this) < 0)
            fail("the hand-written client does not reach the bus");
    }
    ~HandWrittenClient() { sd_bus_flush_close_unref(bus_); }
    HandWrittenClient(const HandWrittenClient &) = delete;
    HandWrittenClient &operator=(const HandWrittenClient &) = delete;

    std::vector<unsigned> next()
    {
        ports_.clear();
        while (ports_.empty()) {
            while (sd_bus_process(bus_, nullptr) > 0)
                ;
            if (ports_.empty() && sd_bus_wait(bus_, uint64_t{kLimitMs} * 1000) <= 0)
                fail("a signal did not come");
        }
        return ports_;
    }

private:
    static int on_signal(sd_bus_message *message, void *self, sd_bus_error *)
    {
        const char *number = strrchr(sd_bus_message_get_path(message), '_');
        static_cast<HandWrittenClient *>(self)->ports_.push_back(
            static_cast<unsigned>(strtoul(number + 2, nullptr, 10)));
        return 0;
    }

    sd_bus *bus_ = nullptr;
    std::vector<unsigned> ports_;
};

void compare(const bench::LinkBus &bus, unsigned ports)
{
    Result by_hand = {};
    Result by_library = {};
    {
        HandWrittenClient client;
        by_hand = measure(bus, ports, [&] { return client.next(); });
    }
    {
        LibraryClient client(ports);
        by_library = measure(bus, ports, [&] { return client.next(); });
    }
    printf("%u under way: %.0f events a second, %.2f times by hand (%.0f)\n", ports, by_library.per_second,
           by_library.per_second / by_hand.per_second, by_hand.per_second);
    printf("%u under way: from the signal to the readable descriptor median %.1f us, 99 of 100 within %.1f us; by "
           "hand, in "
           "one thread, %.1f us and %.1f us\n",
           ports, by_library.median_us, by_library.late_us, by_hand.median_us, by_hand.late_us);
    const std::string under_way = std::to_string(ports) + " under way";
    bench::print_row(("a link event, " + under_way).c_str(), "a client with one thread",
                     by_hand.per_second / by_library.per_second, 1 / 0.8);
    bench::print_row(("its median latency, " + under_way).c_str(), "a client with one thread",
                     by_library.median_us / by_hand.median_us, 1.3);
}

} // namespace

int main()
{
    const bench::LinkBus bus;
    if (!freopen("/dev/null", "w", stderr)) // the library's log
        return 2;
    compare(bus, 1);
    compare(bus, bench::kPorts);
    return 0;
}
