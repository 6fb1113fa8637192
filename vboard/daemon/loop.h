// The daemon's event loop: descriptors and deadlines, one thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>

#include <sys/epoll.h>

#include "core/unique_fd.h"

namespace vboard {

using ddal::core::UniqueFd;

using HostTime = std::chrono::steady_clock::time_point;

class Loop {
public:
    using Handler = std::function<void()>;

    Loop();

    // Calls `handler` whenever `fd` is readable (or at its end), until forget().
    void watch(int fd, Handler handler);
    void forget(int fd);

    // Calls `handler` once. Returns a number for cancel().
    uint64_t at(HostTime when, Handler handler);
    void cancel(uint64_t timer);

    void run();
    void stop() { running_ = false; }

private:
    int wait(::epoll_event *events, int most) const;
    void run_due_timers();

    UniqueFd epoll_;
    bool running_ = false;
    uint64_t next_timer_ = 1;
    std::map<int, Handler> handlers_;
    std::map<std::pair<HostTime, uint64_t>, Handler> timers_;
};

} // namespace vboard
