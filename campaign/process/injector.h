// System calls of a try, seen and failed from outside: the kernel asks the campaign before each of them.
#pragma once

#include <string>
#include <sys/types.h>

#include "attempt.h"

struct seccomp_notif;

namespace campaign {

// In the process of the try: from here on its calls wait for the campaign's word.
void hand_over_calls(Report &report);

// In the campaign.
class Injector {
public:
    Injector(const Condition &condition, Report &report, pid_t process);
    ~Injector();
    Injector(const Injector &) = delete;
    Injector &operator=(const Injector &) = delete;

    // Descriptor to poll; -1 before the process has handed over.
    int descriptor();
    // Answers one call.
    void answer();
    bool reached() const { return reached_; }
    // The last variant of a call was beyond its failures.
    bool exhausted() const { return exhausted_; }
    std::string place() const { return place_; }

private:
    bool is_of_library(const seccomp_notif &call);
    const Condition &condition_;
    Report &report_;
    pid_t process_;
    int pidfd_ = -1;
    int listener_ = -1;
    int seen_ = 0;
    bool reached_ = false;
    bool exhausted_ = false;
    std::string place_;
};

} // namespace campaign
