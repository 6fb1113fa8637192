#include "trial.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <regex>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>

#include "client/client.h"
#include "injector.h"

namespace campaign {

void run_attempt(const Caller &caller, const Condition &condition, Report &report);

namespace {

constexpr int64_t kMargin = 10'000'000'000; // ns for a busy machine
constexpr int64_t kSpeed = 20;              // board seconds per second of the machine, as in the script
constexpr int64_t kGrace = 300'000'000;     // for a program that the library has started and that ends by itself

int64_t now_ns()
{
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now); // the clock of the machine instead of the board's
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::string board_directory()
{
    return vboard::Client().directory().string();
}

std::string trace_path()
{
    return board_directory() + "/.vboard/trace.jsonl";
}

[[noreturn]] void be_the_try(const Caller &caller, const Condition &condition, Report &report)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    close(null);
    run_attempt(caller, condition, report);
    if (condition.name == "dlclose")
        exit(0); // with all registrations of the library
    _exit(0);
}

// Waits for processes that the try has left behind, and kills those that do not end.
int end_the_rest()
{
    const int64_t until = now_ns() + kGrace;
    int left = 0;
    for (;;) {
        siginfo_t info{};
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | __WALL) != 0)
            return left;
        if (info.si_pid != 0)
            continue;
        if (now_ns() < until) {
            const timespec pause{0, 2'000'000};
            syscall(SYS_nanosleep, &pause, nullptr);
            continue;
        }
        std::ostringstream children;
        FILE *const list = fopen("/proc/thread-self/children", "re");
        for (int child; list && fscanf(list, "%d", &child) == 1; ++left)
            kill(child, SIGKILL);
        if (list)
            fclose(list);
        waitid(P_ALL, 0, &info, WEXITED | __WALL);
    }
}

} // namespace

std::string Outcome::text() const
{
    std::ostringstream out;
    out << (returned    ? "returns " + std::to_string(result)
            : cancelled ? "was cancelled"
                        : "does not return")
        << " " << ended << " " << trouble << (place.empty() ? "" : " after " + place) << "\n";
    for (const auto &line : lines)
        out << "    log " << line << "\n";
    for (const auto &[path, is] : files)
        out << "    file " << path << " is " << is.substr(0, 80) << "\n";
    for (const auto &access : accesses)
        out << "    access " << access.substr(0, 120) << "\n";
    out << "    left: descriptors " << descriptors << " threads " << threads << " processes " << processes << " locks "
        << locks << " blocks " << blocks << "\n";
    return out.str();
}

Trial::Trial(const Caller &caller)
    : caller_(caller), report_(static_cast<Report *>(
                           mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))),
      files_(board_directory() + "/root"), trace_(trace_path()), syslog_(board_directory() + "/.vboard/syslog")
{
}

Trial::~Trial()
{
    munmap(report_, sizeof *report_);
}

void Trial::wait(const Condition &condition, pid_t process, Outcome &outcome)
{
    Injector injector(condition, *report_, process);
    const bool injects = condition.name == "call" || condition.name == "cancel";
    const int64_t until = now_ns() + kMargin + int64_t{caller_.seconds} * 1'000'000'000 / kSpeed;
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(process, &status, WNOHANG);
        if (ended == process)
            break;
        if (now_ns() > until) {
            outcome.ended = "hangs";
            kill(process, SIGKILL);
            waitpid(process, &status, 0);
            break;
        }
        pollfd call{injects ? injector.descriptor() : -1, POLLIN, 0};
        const timespec pause{0, call.fd >= 0 ? 2'000'000 : 100'000};
        if (syscall(SYS_ppoll, &call, 1, &pause, nullptr, 8) == 1 && call.revents & POLLIN)
            injector.answer();
    }
    if (outcome.ended.empty() && WIFSIGNALED(status))
        outcome.ended = std::string("ends with ") + strsignal(WTERMSIG(status));
    else if (outcome.ended.empty() && WEXITSTATUS(status) != 0)
        outcome.ended = "exits with " + std::to_string(WEXITSTATUS(status));
    outcome.variants = injects ? injector.variants() : 1;
    outcome.reached =
        injects ? injector.injected() : condition.name != "memory" || report_->reached || !outcome.ended.empty();
    outcome.place = injects ? injector.place() : report_->place;
}

void Trial::gather(Outcome &outcome)
{
    outcome.cancelled = report_->cancelled;
    outcome.returned = report_->stage == Report::kDone && !outcome.cancelled;
    outcome.result = report_->result;
    outcome.output.assign(reinterpret_cast<const char *>(report_->output), report_->length);
    outcome.lines = log_lines(syslog_.take());
    // A file system's identifier is another each time.
    static const std::regex identifier("[0-9a-f]{32}");
    for (const auto &[path, is] : files_.changes())
        outcome.files[std::regex_replace(path, identifier, "UUID")] = std::regex_replace(is, identifier, "UUID");
    if (const std::string changes = switch_.changes(); !changes.empty())
        outcome.files["the switch"] = changes;
    outcome.accesses = changing_accesses(trace_.take(report_->trace_start));
    outcome.descriptors = report_->descriptors;
    outcome.threads = report_->threads;
    outcome.locks = report_->locks;
    outcome.blocks = report_->blocks;
    outcome.trouble = report_->trouble;
}

// Removes the effect of the setup, so that the outcome shows the effect of the call alone.
void Trial::take_away_setup(Outcome &outcome) const
{
    for (const auto &[path, was] : setup_) {
        const auto now = outcome.files.find(path);
        if (now == outcome.files.end())
            outcome.files[path] = "as before the setup";
        else if (now->second == was)
            outcome.files.erase(now);
    }
}

Outcome Trial::run(const Condition &condition)
{
    Outcome outcome;
    memset(static_cast<void *>(report_), 0, sizeof *report_);
    report_->usual_blocks = usual_blocks_;
    trace_path().copy(report_->trace_path, sizeof report_->trace_path - 1);
    const pid_t process = fork();
    if (process == 0)
        be_the_try(caller_, condition, *report_);
    wait(condition, process, outcome);
    outcome.processes = end_the_rest();
    gather(outcome);
    files_.restore();
    if (outcome.files.count("the switch") != 0)
        switch_.restore();
    if (condition.name == "setup")
        setup_ = outcome.files;
    else
        take_away_setup(outcome);
    usual_blocks_ = std::max(usual_blocks_, condition.name == "undisturbed" ? outcome.blocks : 0);
    return outcome;
}

} // namespace campaign
