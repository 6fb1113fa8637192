// What a process sees and may do inside the fence: mounts, devices, processes, privileges.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace vboard {

// The kernel, or the policy of a container, does not allow the fence.
struct FenceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct FencePlan {
    std::string root;                  // folder of the board's files
    std::vector<std::string> writable; // folders that stay writable, with everything that is mounted below them
    std::vector<std::string> needed;   // paths that must stay visible; each without links
    bool real_net = false;             // programs are root and may add interfaces
};

// Moves this process into new namespaces, the process namespace being that of its children. Throws FenceError, like
// every function here.
void enter_namespaces(bool real_net);
// Makes the machine's files read-only in this mount namespace, and lays the board's over them. Devices are the harmless
// ones only; the sockets of the machine's services are out of sight.
void arrange_files(const FencePlan &plan);
// Shows the processes of this process's namespace in /proc.
void arrange_processes();
// Gives up, for this process and whatever it starts, every privilege that could undo the above.
void drop_privileges(bool real_net);
// Opens inherited folders and files anew. A descriptor from outside leads to the mounts outside, which are writable. A
// file that is not visible here is replaced by a copy.
void reopen_inherited();

} // namespace vboard
