// The fence: namespaces around all programs of a board, so that no system call of theirs changes the machine.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

#include "cli/walls.h"

namespace vboard {

using Body = std::function<void()>;

// Starts `body` in a new fence. The first process of the fence waits for it and ends with it, and with the first
// process every other one inside ends. Returns the id of the first process, a child of this one. Throws FenceError when
// the fence cannot be built; then nothing was started.
pid_t start_fence(const FencePlan &plan, const Body &body);

// Starts `body` beside the process `member`, in its fence and in a working directory. Returns the id of a child of this
// process.
pid_t start_inside(pid_t member, const std::string &folder, bool real_net, const Body &body);

// Reports whether a process has other mounts than this one. The board's page says the same, but programs can write it.
bool is_fenced(pid_t member);

} // namespace vboard
