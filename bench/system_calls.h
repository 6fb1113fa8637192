// Counts the system calls that a piece of code makes.
#pragma once

namespace bench {

// Runs `code` in a traced child. -1 where tracing is not allowed or the child did not end by itself.
long count_system_calls(void (*code)());

} // namespace bench
