// Counts the system calls that a piece of code makes.
#pragma once

namespace bench {

// Runs `code` in a traced child. Returns -1 where tracing is not allowed or the child was killed.
long count_system_calls(void (*code)());

} // namespace bench
