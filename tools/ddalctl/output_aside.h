// Keeps the output of the library's programs away from the output of the command, which may be one JSON document.
#pragma once

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "ddalctl/evidence.h"

namespace ddalctl {

// While it lives, standard output and standard error go to a file in memory. It adds the text to the evidence.
class OutputAside {
public:
    OutputAside()
        : out_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)), error_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)),
          text_(memfd_create("output", MFD_CLOEXEC))
    {
        fflush(stdout);
        if (text_ < 0)
            return;
        dup2(text_, STDOUT_FILENO);
        if (!lines_are_shown())
            dup2(text_, STDERR_FILENO);
    }
    ~OutputAside()
    {
        fflush(stdout);
        give_back(out_, STDOUT_FILENO);
        give_back(error_, STDERR_FILENO);
        if (text_ < 0)
            return;
        add_output(text_);
        close(text_);
    }
    OutputAside(const OutputAside &) = delete;
    OutputAside &operator=(const OutputAside &) = delete;

private:
    static void give_back(int saved, int stream)
    {
        if (saved < 0)
            return;
        dup2(saved, stream);
        close(saved);
    }

    int out_;
    int error_;
    int text_;
};

// Returns the result of an operation that starts programs.
template <typename Operation>
int quietly(Operation operation)
{
    const OutputAside aside;
    return operation();
}

} // namespace ddalctl
