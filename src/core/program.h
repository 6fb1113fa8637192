// Starting programs with fixed command lines.
#pragma once

#include <ddal/common.h>
#include <ddal/error.h>

namespace ddal::core {

// NULL-terminated argument vector. The runners fill its first element with the program's base name.
template <typename... Arguments>
class ArgumentVector {
public:
    explicit ArgumentVector(Arguments... arguments) : argv_{nullptr, const_cast<char *>(arguments)..., nullptr} {}
    char **get() { return argv_; }

private:
    char *argv_[sizeof...(Arguments) + 2];
};

// Runs a program and waits for its end. Returns 0, its positive exit status or a negative code.
template <typename... Arguments>
int run_program(const char *path, Arguments... arguments)
{
    return _ddal_common_shell_command(path, ArgumentVector{arguments...}.get());
}

// Returns the result code for a program's outcome: exit statuses never reach callers of the library.
inline int code_of(int outcome)
{
    return outcome > 0 ? DDAL_ERR_FAILURE : outcome;
}

} // namespace ddal::core
