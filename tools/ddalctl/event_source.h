// Sources of `ddalctl events`. Each family names its kinds of events; the command opens, polls and prints them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ddalctl {

class Report;

// An event as a line for people, and the values of its document.
struct Event {
    std::string text;
    std::function<void(Report &)> fill;
};

// One open channel; the destructor closes it.
class EventSource {
public:
    EventSource() = default;
    virtual ~EventSource() = default;
    EventSource(const EventSource &) = delete;
    EventSource &operator=(const EventSource &) = delete;

    virtual std::string name() const = 0; // "prescan 0"
    virtual int descriptor() const = 0;
    virtual short condition() const = 0; // POLLIN or POLLPRI
    // The name without the index of the channel, "prescan".
    virtual std::string kind() const { return name(); }
    // Takes the pending event. Throws Failure when the channel has ended.
    virtual Event take() = 0;

    // A poll has reported an event that is not taken yet. Some drivers report each event to one poll only.
    bool reported = false;
};

struct EventKind {
    const char *name; // in the option --only
    const char *summary;
    bool has_index; // one channel per index, "prescan:2"
    std::unique_ptr<EventSource> (*open)(uint32_t index);
    uint32_t followed = 1; // channels to follow, from index 0, when the user names none
};

// Waits for the next event of one of the sources. Returns null when the user stops the command first. The waits of the
// library would continue after a signal.
EventSource *next_event(const std::vector<std::unique_ptr<EventSource>> &sources);
bool next_event(EventSource &source);

// Lets reads of a channel that has delivered less than a record fail instead of waiting for the rest.
void fail_instead_of_waiting(int channel);
// Throws Failure unless the operation that takes a record from such a channel has succeeded.
void require_record(int result, int channel);

std::vector<EventKind> alarm_events();
std::vector<EventKind> laa_events();
std::vector<EventKind> link_events();
std::vector<EventKind> sfp_events();

} // namespace ddalctl
