// Arguments with which the kernel starts a program of the board.
#pragma once

#include <cstddef>

namespace vboard::shim {

constexpr size_t kMaxArguments = 1024;
constexpr size_t kMaxEnvironmentEntries = 4096;

// The program with the board's variables in its environment. A program of another processor becomes an argument of the
// emulator, whose options pass the variables on: the emulator is a program of the machine and must run without the
// board's library.
struct Command {
    // Builds the command. Returns false with errno when it is too long. Keeps pointers to the arguments.
    bool make(const char *host_path, char *const *given_arguments, char *const *given_environment);

    const char *program;
    char *const *arguments;
    char *environment[kMaxEnvironmentEntries];

private:
    bool emulate(const char *host_path, char *const *given);
    char *emulation_[kMaxArguments + 1];
};

} // namespace vboard::shim
