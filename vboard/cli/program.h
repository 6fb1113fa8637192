// The program that `vboard run` waits for, and the signals that end both.
#pragma once

#include <string>
#include <vector>

namespace vboard {

// Holds back SIGINT, SIGTERM, SIGHUP and SIGQUIT for run_command, which passes them on.
void block_signals();
void unblock_signals();

// Runs a command with further variables in its environment and returns its exit status as a shell would. A signal that
// another process sends to this one goes to the program, and ends it for good 10 s later. `ends_all`: no process that
// the program leaves behind may outlive it.
int run_command(std::vector<std::string> words, const std::vector<std::string> &environment, bool ends_all);

} // namespace vboard
