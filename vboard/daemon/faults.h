// Fault rules as words: "pread:/dev/fpga_usr nth=2 errno=EIO", "short=2", "delay=50ms", "count=0", "pid=123".
#pragma once

#include <string>

#include "daemon/model.h"
#include "page/page.h"

namespace vboard {

// `fault add <call>:<path> ...` (the result is the rule's number), `fault clear [number]`, `fault list`.
std::string control_faults(Page &page, const Words &words);

} // namespace vboard
