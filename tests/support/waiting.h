// Waits that a test interrupts or watches.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>

namespace testing_board {

// Waits until the condition holds. Fails the test after ten seconds.
inline void wait_until(const std::function<bool()> &condition)
{
    for (int i = 0; i < 1000; ++i) {
        if (condition())
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "the condition never came";
}

// Runs a blocking call in a thread. A signal with a handler that does not restart calls can interrupt it.
class Interrupted {
public:
    explicit Interrupted(std::function<long()> call)
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        std::promise<pthread_t> started;
        auto thread = started.get_future();
        result_ = std::async(std::launch::async, [this, call = std::move(call), &started] {
            started.set_value(pthread_self());
            return call();
        });
        thread_ = thread.get();
    }
    void interrupt() const { pthread_kill(thread_, SIGUSR1); }
    // Reports whether the call still blocks after a time in which it should not return.
    bool blocks() const { return result_.wait_for(std::chrono::milliseconds(100)) == std::future_status::timeout; }
    long result() { return result_.get(); }

private:
    std::future<long> result_;
    pthread_t thread_{};
};

} // namespace testing_board
