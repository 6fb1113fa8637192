// The process between a caller and the program it runs.
//
// The application may ignore SIGCHLD, or reap every child it can find; neither may take the end of a program away from
// the library. A child made with exit signal 0 is out of reach of both: only a wait with __WALL finds it, and it waits
// to be reaped whatever the handling of SIGCHLD is. exec makes the exit signal SIGCHLD again, so the program itself
// cannot be that child. A supervisor is: a copy of the caller that never calls exec, starts the program, waits for it
// and leaves the wait status in memory that it shares with the caller.
#pragma once

#include <sys/types.h>

namespace ddal::core {

constexpr int kNullDevice = -1;

// What a program gets as its standard streams.
struct ChildStreams {
    int in = kNullDevice;
    int out = kNullDevice;
    int err = kNullDevice;
};

// Starts a program under a supervisor. Returns the supervisor's id, or -1 with errno.
pid_t start_supervised(const ChildStreams &streams, const char *path, char **argv);

// Waits for the end of a program that the same thread has started. Returns 0 and the program's wait status, or a
// negative errno: the program could not be started, or there is none. A supervisor that was killed counts as its
// program.
int wait_supervised(pid_t supervisor, int *status);

} // namespace ddal::core
