#pragma once

namespace ddalctl {

// Parses the command line, runs the command and prints its outcome. Returns the exit status.
int run(int argc, char **argv);

} // namespace ddalctl
