// Runs a program of the build and keeps its output.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace testing_board {

struct Finished {
    int status; // exit status, or 128 + signal
    std::string out;
    std::string err;
};

// Runs words[0], an absolute path, with the environment of this process and an empty standard input.
Finished run_program(const std::vector<std::string> &words);

// Does the same with a terminal as standard output and standard error. `out` holds what the terminal showed.
Finished run_on_terminal(const std::vector<std::string> &words);

// Does the same as run_program and sends the program a signal after a while.
Finished run_and_signal(const std::vector<std::string> &words, std::chrono::milliseconds after, int signal);

// Runs a shell line and calls `answer` for each line of its output as it arrives. Returns the exit status.
int run_and_answer(const std::string &line, const std::function<void(const std::string &line)> &answer);

// Splits "a b c" into three words.
std::vector<std::string> words_of(const std::string &line);

} // namespace testing_board
