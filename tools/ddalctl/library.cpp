#include "ddalctl/library.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "ddalctl/failure.h"
#include "platform/frame_driver.h"

namespace ddalctl {

namespace {

constexpr const char *kLibrary = "libddal.so.1";

// Loading the library where its frame driver is missing aborts the process; better to say why.
void require_board()
{
    const int fd = open(ddal::platform::kFrameNode, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        close(fd);
        return;
    }
    const int error = errno;
    if (error == ENOENT || error == ENXIO || error == ENODEV)
        throw Failure(-ENODEV, kNothingThere,
                      "this machine is no board (there is no " + std::string(ddal::platform::kFrameNode) +
                          "); run it under a virtual one: vboard run --type mbo -- ddalctl ...");
    throw Failure(-error, kOperationFailed,
                  std::string("cannot open ") + ddal::platform::kFrameNode + ": " + strerror(error));
}

void *load()
{
    require_board();
    // Found through the run path of this program: next to it in a build tree or an installation, else the system's.
    void *library = dlopen(kLibrary, RTLD_NOW);
    if (!library)
        throw Failure(-ENOENT, kNothingThere, std::string("cannot load the library: ") + dlerror());
    return library;
}

} // namespace

void *library_symbol(const char *name)
{
    static void *const library = load();
    void *symbol = dlsym(library, name);
    if (!symbol)
        throw Failure(-ENOSYS, kOperationFailed, std::string("the installed library does not offer ") + name);
    return symbol;
}

} // namespace ddalctl
