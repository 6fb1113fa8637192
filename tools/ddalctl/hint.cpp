#include "ddalctl/hint.h"

#include <cerrno>
#include <string_view>

#include <ddal/error.h>

#include "ddalctl/failure.h"
#include "platform/frame_driver.h"

namespace ddalctl {

namespace {

// What a code means for a command, or for all commands of a family.
struct Row {
    std::string_view command; // begins so
    int code;
    const char *hint;
};

constexpr Row kRows[] = {
    {"ffs mount", -EBUSY, "it may be mounted already: ddalctl ffs list; change it with ddalctl ffs remount"},
    {"ffs umount", -EBUSY, "a program uses the file system: fuser -vm shows which one"},
    {"ffs umount", -EINVAL, "it may not be mounted: ddalctl ffs list"},
    {"ffs format", -EBUSY, "unmount it first: ddalctl ffs umount"},
    {"rfcard", -EBUSY, "repeat the command when the other process has finished"},
    {"rfcard", DDAL_ERR_FAILURE, "ddalctl rfcard reset restarts the card; --log-bytes logs what the card answers"},
    {"link", DDAL_ERR_FAILURE, "start the system's message bus and the link service, and see ddalctl phy list"},
    {"password", DDAL_ERR_PASSWORD_REFUSED, "choose a password that the policy accepts"},
    {"sysinfo get", -ENOENT, "ddalctl sysinfo set stores the item"},
    {"switch", -ENOSYS, "ddalctl board shows the type of the board"},
    {"mem", -EPERM, "run ddalctl as root on a kernel that allows /dev/mem"},
};

std::string general_hint(int code, const std::string &path)
{
    switch (code) {
    case -EACCES:
    case -EPERM: return "run ddalctl as root";
    case -EBUSY: return path.empty() ? "" : "another program may use it: fuser -v " + path;
    case -ENOSYS:
    case -EOPNOTSUPP: return "this board does not support it; ddalctl board shows its type";
    case -ENOENT:
    case -ENODEV:
    case -ENXIO:
        if (path == ddal::platform::kFrameNode)
            return "run ddalctl on a virtual board: vboard run --type mbo -- ddalctl ...";
        return path.empty() ? ""
                            : "this board or its kernel lacks " + path + "; ddalctl doctor tells what else is missing";
    case -EMFILE:
    case -ENFILE: return "raise the limit of open files: ulimit -n";
    case -ENOSPC: return "free space on the file system of " + (path.empty() ? "the file" : path);
    case -EROFS: return "make the file system writable: ddalctl ffs remount";
    default: return "";
    }
}

} // namespace

std::string hint_for(const std::string &command, const Failure &failure)
{
    if (failure.status() == kWrongUse)
        return "";
    for (const Row &row : kRows) {
        if (failure.code() == row.code && command.starts_with(row.command))
            return row.hint;
    }
    return general_hint(failure.code(), failure.evidence().path);
}

} // namespace ddalctl
