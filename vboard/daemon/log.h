// The daemon's log, .vboard/daemon.log.
#pragma once

#include <cstdint>
#include <string>

namespace vboard {

constexpr uint64_t kDaemonLogLimit = 1 << 20;

// Writes one line. The line that reaches the limit is the last one and says so.
void log_line(const std::string &text);

// Appends a line to a list that `vboard ctl` prints. A list that nobody asks for loses its older half at 1 MiB.
void keep_line(std::string &list, const std::string &line);

} // namespace vboard
