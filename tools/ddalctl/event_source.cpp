#include "ddalctl/event_source.h"

#include <cerrno>
#include <poll.h>

#include "ddalctl/failure.h"
#include "ddalctl/interrupt.h"

namespace ddalctl {

namespace {

constexpr int kLookAgain = 100; // ms; a condition that lasts gives no notice when it goes away

// The first of the sources that has something to take.
EventSource *wait_once(const std::vector<EventSource *> &sources)
{
    std::vector<pollfd> channels;
    int time_out = -1;
    for (const EventSource *source : sources) {
        const bool spent = source->lasts() && !source->is_quiet();
        channels.push_back({spent ? -1 : source->descriptor(), source->condition(), 0});
        time_out = spent ? kLookAgain : time_out;
    }
    if (poll(channels.data(), channels.size(), time_out) < 0 && errno != EINTR)
        throw failure_of(-errno);

    EventSource *found = nullptr;
    for (size_t i = 0; i < sources.size(); i++) {
        if (channels[i].fd < 0) {
            pollfd again = {sources[i]->descriptor(), sources[i]->condition(), 0};
            sources[i]->set_quiet(poll(&again, 1, 0) == 0);
        } else if (channels[i].revents != 0 && !found) {
            if ((channels[i].revents & channels[i].events) == 0)
                throw Failure(-EIO, kOperationFailed, sources[i]->name() + ": the channel has ended");
            found = sources[i];
            found->set_quiet(false);
        }
    }
    return found;
}

EventSource *next_of(const std::vector<EventSource *> &sources)
{
    while (!StopOnSignal::stopped()) {
        if (EventSource *source = wait_once(sources))
            return source;
    }
    return nullptr;
}

} // namespace

EventSource *next_event(const std::vector<std::unique_ptr<EventSource>> &sources)
{
    std::vector<EventSource *> all;
    for (const auto &source : sources)
        all.push_back(source.get());
    return next_of(all);
}

bool next_event(EventSource &source)
{
    return next_of({&source}) != nullptr;
}

} // namespace ddalctl
