// Fault rules as words: "pread:/dev/fpga_usr nth=2 errno=EIO", "short=2", "delay=50ms", "count=0", "pid=123".
#pragma once

#include "daemon/control.h"

namespace vboard {

// The commands of `vboard ctl fault`, for a Board.
ControlTable fault_commands();

// The calls that a rule can name, and its options.
Words fault_calls();
inline constexpr const char *kFaultOptions[] = {"nth", "count", "errno", "short", "delay", "pid"};

} // namespace vboard
