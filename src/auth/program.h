// Starting programs with fixed command lines.
#pragma once

#include <ddal/common.h>
#include <ddal/error.h>

namespace ddal::auth {

// NULL-terminated argument vector; the runner puts the program's base name first.
template <typename... Arguments>
class ArgumentVector {
public:
    explicit ArgumentVector(Arguments... arguments) : argv_{nullptr, const_cast<char *>(arguments)..., nullptr} {}
    char **get() { return argv_; }

private:
    char *argv_[sizeof...(Arguments) + 2];
};

// Runs a program and waits: 0, its positive exit status, or a negative code.
template <typename... Arguments>
int run_program(const char *path, Arguments... arguments)
{
    return _ddal_common_shell_command(path, ArgumentVector{arguments...}.get());
}

// The result code for the outcome of a program: exit statuses of programs never reach our callers.
inline int code_of(int outcome)
{
    return outcome > 0 ? DDAL_ERR_FAILURE : outcome;
}

} // namespace ddal::auth
