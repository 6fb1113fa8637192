// The program that `vboard run` waits for, and the signals that end both.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vboard {

// Holds back SIGINT, SIGTERM, SIGHUP and SIGQUIT for run_command, which passes them on.
void block_signals();
void unblock_signals();

// Starts a child of this process that executes a function.
using Starter = std::function<pid_t(const std::function<void()> &)>;

struct Outcome {
    int status; // as a shell returns it
    bool signalled;
};

// Runs a command with further variables in its environment. A signal that another process sends to this one goes to the
// program, and ends it for good 10 s later.
Outcome run_command(std::vector<std::string> words, const std::vector<std::string> &environment, const Starter &start);

// Ends the children of this process, which inherits those of its children that end.
void end_children();

} // namespace vboard
