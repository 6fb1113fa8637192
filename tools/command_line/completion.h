// Completion of typed words in bash, zsh and fish. The scripts ask the program for the words that may follow.
#pragma once

#include <string>
#include <vector>

namespace command_line {

// A word that may follow. `help` may be empty.
struct Candidate {
    std::string word;
    std::string help;
};
using Candidates = std::vector<Candidate>;

// Stand for the names of files, and for a command with its arguments from "--" on.
inline constexpr const char *kFiles = ":files";
inline constexpr const char *kCommand = ":command";

// Option whose arguments are the words after the program's name, up to the one being typed. The program answers with
// completion_lines().
inline constexpr const char *kCompletionOption = "--complete";

// Returns the candidates that begin like `typed`, one a line, each with a tab and its help.
std::string completion_lines(const Candidates &candidates, const std::string &typed);

// Returns the script that makes "bash", "zsh" or "fish" complete the words of `program`, or nothing for another shell.
std::string completion_script(const std::string &shell, const std::string &program);

} // namespace command_line
