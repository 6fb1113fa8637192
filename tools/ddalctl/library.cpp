#include "ddalctl/library.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include <ddal/error.h>

#include "ddalctl/evidence.h"
#include "ddalctl/failure.h"
#include "platform/frame_driver.h"

namespace ddalctl {

namespace {

constexpr const char *kLibrary = "libddal.so.1";

// Without the frame driver, loading the library aborts the process: report the reason instead.
void require_board()
{
    const int fd = open(ddal::platform::kFrameNode, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void *const page = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        const int refusal = errno;
        close(fd);
        if (page == MAP_FAILED)
            throw Failure(-refusal, kOperationFailed,
                          std::string("cannot map the page of ") + ddal::platform::kFrameNode,
                          ddal::platform::kFrameNode);
        munmap(page, size);
        return;
    }
    const int error = errno;
    if (error == ENOENT || error == ENXIO || error == ENODEV)
        throw Failure(-ENODEV, kNothingThere,
                      std::string("this machine is not a board (it has no ") + ddal::platform::kFrameNode + ")",
                      ddal::platform::kFrameNode);
    throw Failure(-error, kOperationFailed,
                  std::string("cannot open ") + ddal::platform::kFrameNode + ": " + strerror(error),
                  ddal::platform::kFrameNode);
}

void *load()
{
    require_board();
    // The run path of this program finds the library next to it in a build tree or an installation, else in the system.
    void *library = dlopen(kLibrary, RTLD_NOW);
    if (!library)
        throw Failure(-ENOENT, kNothingThere, std::string("cannot load the library: ") + dlerror());
    collect_evidence(library);
    return library;
}

void *found(const char *name)
{
    static void *const library = load();
    void *symbol = dlsym(library, name);
    if (!symbol)
        throw Failure(-ENOSYS, kOperationFailed, std::string("the installed library does not export ") + name);
    return symbol;
}

} // namespace

void *library_symbol(const char *name)
{
    void *symbol = found(name);
    begin_evidence(name);
    return symbol;
}

std::string library_text(int code)
{
    char text[128] = "";
    reinterpret_cast<decltype(&ddal_strerror)>(found("ddal_strerror"))(code, text, sizeof text);
    return text;
}

} // namespace ddalctl
