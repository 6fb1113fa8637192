// A piece of a test in a process of its own: for what a process can do only once, and for several processes at work.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/log_watch.h"

namespace testing_board {

// Starts `code` in a child; its result is the child's exit status.
inline pid_t start_child(const std::function<int()> &code)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(code());
    return pid;
}

// The exit status of a child, or minus the signal that ended it.
inline int wait_for_child(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// What `code` returns in a child: texts without newlines.
inline std::vector<std::string> in_child(const std::function<std::vector<std::string>()> &code)
{
    int ends[2];
    if (pipe(ends) != 0)
        return {"no pipe"};
    const pid_t pid = start_child([&] {
        for (const std::string &text : code()) {
            const std::string line = text + "\n";
            if (write(ends[1], line.data(), line.size()) != static_cast<ssize_t>(line.size()))
                return 1;
        }
        return 0;
    });
    close(ends[1]);
    std::string all;
    char buffer[4096];
    for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;)
        all.append(buffer, static_cast<size_t>(n));
    close(ends[0]);
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = all.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(all.substr(at, end - at));
    if (const int status = wait_for_child(pid); status != 0)
        lines.push_back("child ended with " + std::to_string(status));
    return lines;
}

// The result of a call in a child and its log lines.
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
