// Runs one try in a separate process and collects its effects.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "attempt.h"
#include "board_state.h"
#include "calls.h"

namespace campaign {

struct Outcome {
    bool reached = false; // the numbered event occurred
    int variants = 1;     // of the event, which may have occurred without an effect
    std::string place;    // the call of that event
    // How the process ended, if not by itself; "hangs" after the time limit.
    std::string ended;
    bool returned = false;
    bool cancelled = false;
    long result = 0;
    std::string output;
    std::vector<std::string> lines;
    std::map<std::string, std::string> files;
    std::vector<std::string> accesses;
    int descriptors = 0, threads = 0, processes = 0, locks = 0;
    long blocks = 0;
    std::string trouble;

    std::string text() const;
};

class Trial {
public:
    explicit Trial(const Caller &caller);
    ~Trial();
    Trial(const Trial &) = delete;
    Trial &operator=(const Trial &) = delete;

    Outcome run(const Condition &condition);

private:
    void wait(const Condition &condition, pid_t process, Outcome &outcome);
    void gather(Outcome &outcome);
    void take_away_setup(Outcome &outcome) const;

    const Caller &caller_;
    Report *report_;
    long usual_blocks_ = 0;
    Files files_;
    SwitchTables switch_;
    std::map<std::string, std::string> setup_; // changes of the statements before the call
    GrowingFile trace_;
    GrowingFile syslog_;
};

} // namespace campaign
