// Ctrl-C for commands that run until the user stops them.
#pragma once

#include <csignal>

namespace ddalctl {

// While it lives, SIGINT, SIGTERM and SIGHUP end a blocking call with EINTR instead of the program, so that the command
// can still report its results.
class StopOnSignal {
public:
    StopOnSignal()
    {
        stopped_ = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { stopped_ = 1; };
        sigaction(SIGINT, &action, &old_interrupt_);
        sigaction(SIGTERM, &action, &old_terminate_);
        sigaction(SIGHUP, &action, &old_hang_up_);
    }
    ~StopOnSignal()
    {
        sigaction(SIGINT, &old_interrupt_, nullptr);
        sigaction(SIGTERM, &old_terminate_, nullptr);
        sigaction(SIGHUP, &old_hang_up_, nullptr);
    }
    StopOnSignal(const StopOnSignal &) = delete;
    StopOnSignal &operator=(const StopOnSignal &) = delete;

    static bool stopped() { return stopped_ != 0; }

private:
    static inline volatile sig_atomic_t stopped_ = 0;
    struct sigaction old_interrupt_ = {};
    struct sigaction old_terminate_ = {};
    struct sigaction old_hang_up_ = {};
};

} // namespace ddalctl
