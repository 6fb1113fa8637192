// What ends a command that waits or watches: Ctrl-C, and the option --timeout.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>
#include <sys/time.h>

#include "ddalctl/command.h"
#include "ddalctl/failure.h"

namespace ddalctl {

// While it lives, SIGINT, SIGTERM, SIGHUP and the end of --timeout end a blocking call with EINTR instead of the
// program, so that the command can still report its results.
class StopOnSignal {
public:
    explicit StopOnSignal(const Arguments &arguments) : timeout_ms_(arguments.number_or(kTimeout.name, 0))
    {
        ended_by_ = 0;
        struct sigaction action = {};
        action.sa_handler = [](int signal) {
            if (ended_by_ == 0)
                ended_by_ = signal;
        };
        for (size_t i = 0; i < kSignals; i++)
            sigaction(kEnding[i], &action, &before_[i]);
        set_timer(timeout_ms_);
    }
    StopOnSignal() : StopOnSignal(Arguments()) {}
    ~StopOnSignal()
    {
        set_timer(0);
        for (size_t i = 0; i < kSignals; i++)
            sigaction(kEnding[i], &before_[i], nullptr);
    }
    StopOnSignal(const StopOnSignal &) = delete;
    StopOnSignal &operator=(const StopOnSignal &) = delete;

    static bool stopped() { return ended_by_ != 0; }
    static bool timed_out() { return ended_by_ == SIGALRM; }

    // Throws Failure if the time of a command that is to see `wanted` events has ended after `seen` of them.
    void require_all(const Arguments &arguments, uint32_t seen, const std::string &what) const
    {
        if (timed_out() && arguments.given("--count") && seen < arguments.number("--count"))
            throw Failure(-ETIMEDOUT, kOperationFailed,
                          std::to_string(seen) + " of " + std::to_string(arguments.number("--count")) + " " + what +
                              " came in " + std::to_string(timeout_ms_) + " ms");
    }

private:
    static constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP, SIGALRM};
    static constexpr size_t kSignals = sizeof kEnding / sizeof *kEnding;
    static constexpr long kAgain = 20'000; // us: a signal just before a blocking call does not end the call

    static void set_timer(uint32_t milliseconds)
    {
        const itimerval timer = {
            {0, milliseconds != 0 ? kAgain : 0},
            {static_cast<time_t>(milliseconds / 1000), static_cast<suseconds_t>(milliseconds % 1000 * 1000)}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }

    static inline volatile sig_atomic_t ended_by_ = 0;
    uint32_t timeout_ms_;
    struct sigaction before_[kSignals] = {};
};

} // namespace ddalctl
