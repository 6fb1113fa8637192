// Keeps the output of the library's programs away from the output of the command, which may be one JSON document.
#pragma once

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace ddalctl {

// While it lives, standard output goes where standard error goes.
class OutputAside {
public:
    OutputAside() : saved_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        fflush(stdout);
        dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~OutputAside()
    {
        if (saved_ < 0)
            return;
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    OutputAside(const OutputAside &) = delete;
    OutputAside &operator=(const OutputAside &) = delete;

private:
    int saved_;
};

} // namespace ddalctl
