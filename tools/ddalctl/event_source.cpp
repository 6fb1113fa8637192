#include "ddalctl/event_source.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

#include "core/descriptor_link.h"
#include "ddalctl/failure.h"
#include "ddalctl/interrupt.h"

namespace ddalctl {

namespace {

// Marks the sources that have a pending event.
void wait_once(const std::vector<EventSource *> &sources)
{
    std::vector<pollfd> channels;
    for (const EventSource *source : sources)
        channels.push_back({source->descriptor(), source->condition(), 0});
    if (poll(channels.data(), channels.size(), -1) < 0) {
        if (errno != EINTR)
            throw failure_of(-errno);
        return;
    }
    for (size_t i = 0; i < sources.size(); i++) {
        if (channels[i].revents != 0 && (channels[i].revents & channels[i].events) == 0)
            throw Failure(-EIO, kOperationFailed, sources[i]->name() + ": the channel has ended");
        sources[i]->reported = channels[i].revents != 0;
    }
}

EventSource *next_of(const std::vector<EventSource *> &sources)
{
    while (!StopOnSignal::stopped()) {
        for (EventSource *source : sources) {
            if (std::exchange(source->reported, false))
                return source;
        }
        wait_once(sources);
    }
    return nullptr;
}

} // namespace

void fail_instead_of_waiting(int channel)
{
    const int flags = fcntl(channel, F_GETFL);
    if (flags >= 0)
        fcntl(channel, F_SETFL, flags | O_NONBLOCK);
}

void require_record(int result, int channel)
{
    if (result != -EAGAIN)
        return require(result);
    char path[256] = "";
    const ssize_t length = readlink(ddal::core::DescriptorLink(channel).path(), path, sizeof path - 1);
    throw Failure(-EIO, kOperationFailed, "the channel has delivered less than a record", length > 0 ? path : nullptr);
}

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
