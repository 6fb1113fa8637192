#include "ddalctl/progress.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace ddalctl {

namespace {

constexpr int kBarWidth = 30;
constexpr uint32_t kLinesPerPhase = 10;
constexpr double kShortest = 0.5; // seconds before an estimate is worth showing

struct PhaseName {
    ddal_ext_rfcard_phase phase;
    const char *text;
    bool flash_is_partial;
};

constexpr PhaseName kPhases[] = {
    {DDAL_EXT_RFCARD_ENTER, "starting the loader", false},
    {DDAL_EXT_RFCARD_COMPARE, "comparing flash with the image", false},
    {DDAL_EXT_RFCARD_ERASE, "erasing", true},
    {DDAL_EXT_RFCARD_PROGRAM, "programming", true},
    {DDAL_EXT_RFCARD_VERIFY, "verifying", true},
    {DDAL_EXT_RFCARD_LOADER, "rewriting the loader", true},
    {DDAL_EXT_RFCARD_RESTART, "starting the application", false},
};

const PhaseName &name_of(ddal_ext_rfcard_phase phase)
{
    for (const PhaseName &row : kPhases) {
        if (row.phase == phase)
            return row;
    }
    return kPhases[0];
}

double seconds_since(const timespec &start)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - start.tv_sec) + static_cast<double>(now.tv_nsec - start.tv_nsec) / 1e9;
}

volatile sig_atomic_t hold;
volatile sig_atomic_t in_loader;

void say(const char *text)
{
    if (write(STDOUT_FILENO, text, strlen(text)) < 0)
        return; // standard output is closed
}

void on_signal(int signal)
{
    if (hold != 0) {
        say("\nnot now: the card's flash is incomplete; wait until it is written\n");
        return;
    }
    if (in_loader != 0)
        say("\ninterrupted; the card may still run its boot loader: use ddalctl rfcard reset\n");
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    sigaction(signal, &usual, nullptr);
    raise(signal);
}

} // namespace

Progress::Progress(bool silent) : silent_(silent), terminal_(!silent && isatty(STDOUT_FILENO) == 1) {}

Progress::~Progress()
{
    if (terminal_)
        say("\n");
}

void Progress::report(void *progress, ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total)
{
    static_cast<Progress *>(progress)->update(phase, done, total);
}

void Progress::update(ddal_ext_rfcard_phase phase, uint32_t done, uint32_t total)
{
    HoldWhileWriting::enter(phase);
    if (phase == DDAL_EXT_RFCARD_PROGRAM)
        programmed_ = done;
    if (silent_)
        return;

    const bool begins = done == 0;
    const uint32_t tenth = total != 0 ? static_cast<uint32_t>(uint64_t{done} * kLinesPerPhase / total) : 0;
    if (begins) {
        if (terminal_ && phase != phase_)
            say("\n");
        phase_ = phase;
        clock_gettime(CLOCK_MONOTONIC, &phase_start_);
    }
    const std::string left = time_left(done, total);
    if (terminal_)
        show_bar(done, total, left);
    else if (begins || tenth != shown_tenth_)
        show_line(done, total, left);
    shown_tenth_ = tenth;
}

std::string Progress::time_left(uint32_t done, uint32_t total) const
{
    const double passed = seconds_since(phase_start_);
    if (done == 0 || done == total || passed < kShortest)
        return "";
    char text[48];
    snprintf(text, sizeof text, ", %.0f s left", passed * (total - done) / done);
    return text;
}

void Progress::show_bar(uint32_t done, uint32_t total, const std::string &left)
{
    char text[256];
    if (total == 0) {
        snprintf(text, sizeof text, "\r\033[K%s", name_of(phase_).text);
    } else {
        const int full = static_cast<int>(uint64_t{done} * kBarWidth / total);
        char bar[kBarWidth + 1] = {};
        memset(bar, '#', static_cast<size_t>(full));
        memset(bar + full, '.', static_cast<size_t>(kBarWidth - full));
        snprintf(text, sizeof text, "\r\033[K%-30s [%s] %u of %u bytes%s", name_of(phase_).text, bar, done, total,
                 left.c_str());
    }
    say(text);
}

void Progress::show_line(uint32_t done, uint32_t total, const std::string &left)
{
    if (total == 0)
        printf("%s\n", name_of(phase_).text);
    else
        printf("%s: %u of %u bytes%s\n", name_of(phase_).text, done, total, left.c_str());
    fflush(stdout);
}

HoldWhileWriting::HoldWhileWriting()
{
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &old_interrupt_);
    sigaction(SIGTERM, &action, &old_terminate_);
}

HoldWhileWriting::~HoldWhileWriting()
{
    hold = 0;
    in_loader = 0;
    sigaction(SIGINT, &old_interrupt_, nullptr);
    sigaction(SIGTERM, &old_terminate_, nullptr);
}

void HoldWhileWriting::enter(ddal_ext_rfcard_phase phase)
{
    hold = name_of(phase).flash_is_partial ? 1 : 0;
    in_loader = phase != DDAL_EXT_RFCARD_RESTART ? 1 : 0;
}

} // namespace ddalctl
