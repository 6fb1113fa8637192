// What the kernel is given to start a program of the board.
#pragma once

#include <cstddef>

namespace vboard::shim {

constexpr size_t kMaxArguments = 1024;
constexpr size_t kMaxEnvironmentEntries = 4096;

// The program with the board's variables in its environment. One of another processor is an argument of the emulator,
// which gives it those variables by its own option: the emulator itself is a program of the machine, in front of which
// no library of the board may stand.
struct Command {
    // False with errno when it is too long. Keeps pointers to what it is given.
    bool make(const char *host_path, char *const *given_arguments, char *const *given_environment);

    const char *program;
    char *const *arguments;
    char *environment[kMaxEnvironmentEntries];

private:
    bool emulate(const char *host_path, char *const *given);
    char *emulation_[kMaxArguments + 1];
};

} // namespace vboard::shim
