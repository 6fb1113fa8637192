// Programs as child processes: the functions under the exported runners.
#pragma once

#include <cstdio>
#include <sys/types.h>

// Starts a program. `to_child` and `from_child` receive streams on its standard input and output; a null pointer gives
// it /dev/null instead. Its standard error is err_fd, or /dev/null for -1. Returns 0 or a negative errno.
//
// The child keeps no other descriptor, has an empty signal mask and default handling, and gets SIGTERM when the calling
// thread ends. A program that cannot be executed ends with exit status 127.
int ddal_common_spawn(pid_t *pid, FILE **to_child, FILE **from_child, int err_fd, const char *path, char **argv);

// Closes the given streams (either may be null) and waits for the child. Returns 0 or a negative errno.
int ddal_common_spawn_wait(pid_t pid, FILE *in_stream, FILE *out_stream, int *status);

// Runs a program to its end with standard input from /dev/null. An out_fd or err_fd of -1 also means /dev/null.
int ddal_common_run(int out_fd, int err_fd, int *status, const char *path, char **argv);
