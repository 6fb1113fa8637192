#include "daemon/loop.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <system_error>

namespace vboard {

Loop::Loop() : epoll_(epoll_create1(EPOLL_CLOEXEC))
{
    if (!epoll_)
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
}

void Loop::watch(int fd, Handler handler)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0)
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    handlers_[fd] = std::move(handler);
}

void Loop::forget(int fd)
{
    if (handlers_.erase(fd))
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

uint64_t Loop::at(HostTime when, Handler handler)
{
    const uint64_t id = next_timer_++;
    timers_.emplace(std::pair{when, id}, std::move(handler));
    return id;
}

void Loop::cancel(uint64_t timer)
{
    for (auto it = timers_.begin(); it != timers_.end(); ++it)
        if (it->first.second == timer) {
            timers_.erase(it);
            return;
        }
}

// Waits to the nanosecond: the frame tick must not be a millisecond late.
int Loop::wait(epoll_event *events, int most) const
{
    using namespace std::chrono;
    if (timers_.empty())
        return epoll_wait(epoll_.get(), events, most, -1);
    const auto left =
        std::max(nanoseconds{0}, duration_cast<nanoseconds>(timers_.begin()->first.first - steady_clock::now()));
    timespec span;
    span.tv_sec = static_cast<time_t>(duration_cast<seconds>(left).count());
    span.tv_nsec = static_cast<long>((left % seconds{1}).count());
    return epoll_pwait2(epoll_.get(), events, most, &span, nullptr);
}

void Loop::run_due_timers()
{
    // Handlers may set new timers, so only those that are due now run in this round.
    const auto now = std::chrono::steady_clock::now();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        const Handler handler = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        handler();
    }
}

void Loop::run()
{
    running_ = true;
    while (running_) {
        epoll_event events[16];
        const int n = wait(events, 16);
        for (int i = 0; i < n && running_; ++i) {
            const auto found = handlers_.find(events[i].data.fd);
            if (found == handlers_.end())
                continue; // an earlier handler has forgotten it
            const Handler handler = found->second;
            handler();
        }
        run_due_timers();
    }
}

} // namespace vboard
