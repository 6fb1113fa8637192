// Code in a process of its own: the library's caches are empty there, and what it keeps goes with it.
#pragma once

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace testing_board {

// What `code` returns in a forked child; how the child ended if it did not get that far.
inline std::string in_child(const std::function<std::string()> &code)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        std::string text;
        try {
            text = code();
        } catch (const std::exception &error) {
            text = std::string("exception: ") + error.what();
        }
        for (size_t at = 0; at < text.size();) {
            const ssize_t n = write(ends[1], text.data() + at, text.size() - at);
            if (n <= 0)
                _exit(2);
            at += static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(ends[1]);
    std::string text;
    char bytes[4096];
    for (ssize_t n; (n = read(ends[0], bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(n));
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return status == 0 ? text : "child ended with status " + std::to_string(status) + ": " + text;
}

} // namespace testing_board
