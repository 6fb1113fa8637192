// Unusual states of a process that runs programs through the library. None of them may change a result.
#pragma once

#include <csignal>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/in_child.h"

namespace testing_board {

struct Surroundings {
    const char *name;
    void (*enter)(); // runs in a child of the test, because it cannot be undone
};

inline void handle(int number, void (*handler)(int))
{
    struct sigaction action = {}; // without SA_RESTART
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
}

inline void reap(int options)
{
    while (waitpid(-1, nullptr, options) > 0) {
    }
}

inline void reap_in_a_thread(int options)
{
    std::thread([options] {
        for (;; usleep(50))
            reap(options);
    }).detach();
}

// Sends this thread a signal every millisecond.
inline void tick()
{
    handle(SIGALRM, [](int) {});
    constexpr itimerval kEveryMillisecond = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &kEveryMillisecond, nullptr);
}

inline void end_ticking()
{
    constexpr itimerval kNever = {};
    setitimer(ITIMER_REAL, &kNever, nullptr);
}

inline const Surroundings kTicking = {"a timer without SA_RESTART", tick};

// Not under the user-mode emulator, whose children can be reaped by the test itself.
inline const std::vector<Surroundings> kReaping = {
    {"SIGCHLD ignored", [] { signal(SIGCHLD, SIG_IGN); }},
    {"SIGCHLD without zombies",
     [] {
         struct sigaction action = {};
         action.sa_handler = [](int) {};
         action.sa_flags = SA_NOCLDWAIT;
         sigaction(SIGCHLD, &action, nullptr);
     }},
    {"a handler that reaps", [] { handle(SIGCHLD, [](int) { reap(WNOHANG); }); }},
    {"a thread that reaps", [] { reap_in_a_thread(0); }},
    {"a thread that reaps clones too", [] { reap_in_a_thread(__WALL); }},
};

// Runs `code` in a child in each of the surroundings. An empty text means success.
inline void expect_in_each(const std::vector<Surroundings> &all, const std::function<std::string()> &code)
{
    for (const Surroundings &surroundings : all)
        EXPECT_EQ(in_child([&] {
                      surroundings.enter();
                      return code();
                  }),
                  "")
            << surroundings.name;
}

} // namespace testing_board
