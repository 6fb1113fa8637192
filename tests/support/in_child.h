// Runs a piece of a test in a separate process: for work that a process can do only once, and for several processes.
#pragma once

#include <exception>
#include <functional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/log_watch.h"

namespace testing_board {

// Starts `code` in a child. Its result is the child's exit status.
inline pid_t start_child(const std::function<int()> &code)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(code());
    return pid;
}

// Waits for a child. Returns its exit status, or minus the signal that ended it.
inline int wait_for_child(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Returns the text of `code` in a child, or how the child ended if it did not return one. The child starts with empty
// caches of the library, and everything that the library keeps ends with it.
inline std::string in_child(const std::function<std::string()> &code)
{
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    const pid_t pid = start_child([&] {
        std::string text;
        try {
            text = code();
        } catch (const std::exception &error) {
            text = std::string("exception: ") + error.what();
        }
        for (size_t at = 0; at < text.size();) {
            const ssize_t n = write(ends[1], text.data() + at, text.size() - at);
            if (n <= 0)
                return 2;
            at += static_cast<size_t>(n);
        }
        return 0;
    });
    close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    close(ends[0]);
    if (const int status = wait_for_child(pid); status != 0)
        text += "child ended with " + std::to_string(status);
    return text;
}

// Does the same for several texts without newlines.
inline std::vector<std::string> in_child(const std::function<std::vector<std::string>()> &code)
{
    const std::function<std::string()> joined = [&code] {
        std::string text;
        for (const std::string &line : code())
            text += line + "\n";
        return text;
    };
    std::istringstream text(in_child(joined));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

// Returns the result of a call in a child and its log lines.
inline std::vector<std::string> outcome_in_child(const std::function<long()> &call)
{
    return in_child([&] {
        LogWatch log;
        std::vector<std::string> lines{std::to_string(call())};
        for (const std::string &line : log.take())
            lines.push_back(line);
        return lines;
    });
}

} // namespace testing_board
