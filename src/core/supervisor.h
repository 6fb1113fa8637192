// The process between a caller and the program it runs.
//
// The application may ignore SIGCHLD, or reap every child it can find. The library must learn how a program ended in
// both cases. A child with exit signal 0 allows that: only a wait with __WALL finds it, and it stays until it is
// reaped, however SIGCHLD is handled. exec sets the exit signal back to SIGCHLD, so the program itself cannot be that
// child. The supervisor is: a copy of the caller that never calls exec. It starts the program, waits for it and leaves
// the wait status in memory that it shares with the caller.
#pragma once

#include <sys/types.h>

namespace ddal::core {

constexpr int kNullDevice = -1;

// Standard streams of a program.
struct ChildStreams {
    int in = kNullDevice;
    int out = kNullDevice;
    int err = kNullDevice;
};

// Starts a program under a supervisor. Returns the supervisor's process id, or -1 with errno.
pid_t start_supervised(const ChildStreams &streams, const char *path, char **argv);

// Waits for the end of a program that the same thread has started. Returns 0 and the program's wait status. Returns a
// negative errno when the program could not be started or the thread has no such supervisor. The end of a killed
// supervisor counts as the program's.
int wait_supervised(pid_t supervisor, int *status);

} // namespace ddal::core
