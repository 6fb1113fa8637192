// Watches and fails system calls of a try from outside: the kernel asks the campaign before each of them.
#pragma once

#include <string>
#include <sys/types.h>

#include "attempt.h"

struct seccomp_notif;
struct seccomp_notif_resp;

namespace campaign {

// Runs in the process of the try: from here on its calls wait for the campaign's answer.
void hand_over_calls(Report &report);

// Runs in the campaign.
class Injector {
public:
    Injector(const Condition &condition, Report &report, pid_t process);
    ~Injector();
    Injector(const Injector &) = delete;
    Injector &operator=(const Injector &) = delete;

    // Returns the descriptor to poll, or -1 before the process has handed over its calls.
    int descriptor();
    // Answers one call.
    void answer();
    // Returns the number of ways in which the numbered call can fail; 0 when it did not occur.
    int variants() const { return variants_; }
    bool injected() const { return injected_; }
    std::string place() const { return place_; }

private:
    bool is_of_library(const seccomp_notif &call);
    bool fail(const seccomp_notif &call, int way, seccomp_notif_resp &response);
    long move_half(const seccomp_notif &call) const;
    void leave_all_time(const seccomp_notif &call) const;
    bool close_behind(const seccomp_notif &call);

    const Condition &condition_;
    Report &report_;
    pid_t process_;
    int pidfd_ = -1;
    int listener_ = -1;
    int seen_ = 0;
    int threads_ = 0; // that the library has started
    int variants_ = 0;
    bool injected_ = false;
    std::string place_;
};

} // namespace campaign
