// Shows the progress of an operation on the RF card: a bar on a terminal, lines elsewhere.
#pragma once

#include <ddal/ext.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <string>

namespace ddalctl {

class Progress {
public:
    // `silent` shows nothing, so that standard output stays one JSON document.
    explicit Progress(bool silent);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // For ddal_ext_rfcard_progress.
    static void report(void *progress, enum ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total);

    uint32_t programmed() const { return programmed_; }

private:
    void update(ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total);
    void show_bar(uint32_t done, uint32_t total, const std::string &left);
    void show_line(uint32_t done, uint32_t total, const std::string &left);
    std::string time_left(uint32_t done, uint32_t total) const;

    bool silent_;
    bool terminal_;
    ddal_ext_rfcard_phase phase_ = DDAL_EXT_RFCARD_ENTER;
    struct timespec phase_start_ = {};
    uint32_t shown_tenth_ = 0;
    uint32_t programmed_ = 0;
};

// While it lives, SIGINT and SIGTERM only print a message as long as the card's flash is incomplete. Before and after
// that they end the program.
class HoldWhileWriting {
public:
    HoldWhileWriting();
    ~HoldWhileWriting();
    HoldWhileWriting(const HoldWhileWriting &) = delete;
    HoldWhileWriting &operator=(const HoldWhileWriting &) = delete;

    static void enter(ddal_ext_rfcard_phase phase);

private:
    struct sigaction old_interrupt_ = {};
    struct sigaction old_terminate_ = {};
};

} // namespace ddalctl
