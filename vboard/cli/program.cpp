#include "cli/program.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "daemon/text_file.h"

namespace vboard {

namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr timespec kGrace{10, 0};

sigset_t awaited_signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (const int number : kEnding)
        sigaddset(&set, number);
    return set;
}

// Becomes the program of a command; SIGKILL when this process's parent ends first.
[[noreturn]] void execute(std::vector<std::string> &words)
{
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    unblock_signals();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execvp(arguments[0], arguments.data());
    std::cerr << "vboard: cannot run " << arguments[0] << ": " << std::strerror(errno) << "\n";
    _exit(127);
}

// Takes the ends of children; the status of `program` when it is among them.
std::optional<int> reap(pid_t program)
{
    std::optional<int> ended;
    int status = 0;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;)
        if (child == program)
            ended = status;
    return ended;
}

// From /proc/PID/stat: "PID (NAME) STATE PARENT ..."; the name may hold anything.
pid_t parent_of(const std::filesystem::path &process)
{
    const std::string text = read_text(process / "stat");
    const size_t end = text.rfind(')');
    return end == std::string::npos || end + 4 > text.size() ? 0 : std::atoi(text.c_str() + end + 4);
}

int wait_for(pid_t program, bool *signalled)
{
    const sigset_t awaited = awaited_signals();
    for (;;) {
        siginfo_t info{};
        const int number = *signalled ? sigtimedwait(&awaited, &info, &kGrace) : sigwaitinfo(&awaited, &info);
        if (number < 0 && errno == EAGAIN)
            kill(program, SIGKILL);
        if (const auto status = reap(program))
            return *status;
        // The terminal's own signals have reached the program as well.
        if (number <= 0 || number == SIGCHLD || info.si_code == SI_KERNEL)
            continue;
        kill(program, number);
        *signalled = true;
    }
}

} // namespace

void block_signals()
{
    signal(SIGCHLD, SIG_DFL);
    const sigset_t awaited = awaited_signals();
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    for (const int number : kEnding) // an ignored signal is not kept; under nohup SIGHUP stays ignored
        if (signal(number, SIG_DFL) == SIG_IGN && number == SIGHUP)
            signal(number, SIG_IGN);
}

void unblock_signals()
{
    const sigset_t awaited = awaited_signals();
    sigprocmask(SIG_UNBLOCK, &awaited, nullptr);
}

void end_children()
{
    for (bool found = true; found;) {
        found = false;
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            const pid_t process = std::atoi(entry.path().filename().c_str());
            if (process <= 0 || parent_of(entry.path()) != getpid())
                continue;
            found = true;
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
}

Outcome run_command(std::vector<std::string> words, const std::vector<std::string> &environment, const Starter &start)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t program = start([&] {
        for (const std::string &entry : environment)
            putenv(const_cast<char *>(entry.c_str()));
        execute(words);
    });
    bool signalled = false;
    const int status = wait_for(program, &signalled);
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), signalled};
}

} // namespace vboard
