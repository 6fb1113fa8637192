#include "cli/explain.h"

#include <iomanip>
#include <sstream>

namespace vboard {

namespace {

struct Row {
    const char *thing; // of the machine
    const char *fence; // what holds it with the fence
    const char *alone; // and with the preload library alone
};

constexpr Row kRows[] = {
    {"files, by path", "read-only mounts, below the board's files", "preload library"},
    {"files, through a descriptor that is read-only", "read-only mounts; descriptors opened anew inside",
     "preload library"},
    {"mounts", "no privilege to mount", "preload library"},
    {"disks and other devices", "not in /dev", "preload library"},
    {"settings in /proc and /sys", "read-only mounts", "preload library"},
    {"sockets of services, by path", "/run is the board's", "preload library"},
    {"TCP ports, abstract sockets, interfaces", "network namespace",
     "preload library for names and interfaces; nothing for TCP ports"},
    {"host name", "host name namespace", "preload library"},
    {"System V shared memory, semaphores, queues", "IPC namespace", "preload library"},
    {"processes", "process namespace", "nothing"},
    {"clocks, reboot, kernel modules", "no privilege", "preload library"},
    {"all of these, by raw system calls", "the same", "nothing"},
};

std::string quoted(const std::string &text)
{
    std::ostringstream out;
    out << std::quoted(text);
    return out.str();
}

std::string json(const std::string &obstacle)
{
    const bool fence = obstacle.empty();
    std::string text = std::string("{\"fence\": ") + (fence ? "true" : "false");
    if (!fence)
        text += ", \"obstacle\": " + quoted(obstacle);
    text += ", \"held\": {";
    for (const Row &row : kRows)
        text += (&row == kRows ? "" : ", ") + quoted(row.thing) + ": " + quoted(fence ? row.fence : row.alone);
    return text + "}}\n";
}

} // namespace

std::string explanation(const std::string &obstacle, bool as_json)
{
    if (as_json)
        return json(obstacle);
    std::ostringstream out;
    out << "fence: " << (obstacle.empty() ? "yes" : "no (" + obstacle + ")") << "\n\n";
    out << std::left << std::setw(48) << "of this machine"
        << "held by\n";
    for (const Row &row : kRows)
        out << std::left << std::setw(48) << row.thing << (obstacle.empty() ? row.fence : row.alone) << "\n";
    return out.str();
}

std::string fence_reference()
{
    std::string text = "| Of this machine | With the fence | With the preload library alone |\n|---|---|---|\n";
    for (const Row &row : kRows)
        text += std::string("| ") + row.thing + " | " + row.fence + " | " + row.alone + " |\n";
    return text;
}

} // namespace vboard
