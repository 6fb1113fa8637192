// What a program with the library needs in order to start: the frame driver's page, and the library itself.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/unique_fd.h"
#include "ddalctl/doctor/services.h"
#include "platform/frame_driver.h"

namespace ddalctl::doctor {

using ddal::core::UniqueFd;
using ddal::platform::FramePage;

namespace {

constexpr int kAttempts = 50;
constexpr useconds_t kPause = 10'000; // us, a frame

uint32_t load(const uint32_t &word)
{
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

// Returns what is wrong with the page, or an empty text.
std::string page_flaw(const FramePage &page)
{
    const uint32_t first_sequence = load(page.sequence);
    const uint32_t first = load(page.bcn_low);
    bool settled = false;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const bool valid = load(page.bcn_low) != UINT32_MAX || load(page.bcn_high) != UINT32_MAX;
        settled |= load(page.sequence) % 2 == 0;
        if (settled && valid && load(page.bcn_low) != first)
            return "";
        usleep(kPause);
    }
    if (!settled)
        return "the driver does not end its change of the page";
    if (load(page.bcn_low) == UINT32_MAX && load(page.bcn_high) == UINT32_MAX)
        return "the frame count is not valid";
    return load(page.sequence) == first_sequence ? "the frame count stands still" : "only its sequence word moves";
}

// Loads the library with standard error in `out` and without a core file. Returns only in case of failure.
[[noreturn]] void load_in_child(const char *name, int out)
{
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    dup2(out, STDERR_FILENO);
    if (dlopen(name, RTLD_NOW))
        _exit(0);
    const char *reason = dlerror();
    static_cast<void>(!write(out, reason, strlen(reason)));
    _exit(1);
}

std::string text_from(int fd)
{
    std::string text;
    char part[512];
    for (ssize_t n = 0; (n = read(fd, part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(n));
    text.erase(text.find_last_not_of('\n') + 1);
    return text.substr(0, text.find('\n'));
}

} // namespace

std::vector<Problem> examine_frame(const Need &need)
{
    const UniqueFd fd{open(need.path, O_RDONLY | O_CLOEXEC)};
    struct stat status = {};
    if (!fd)
        return {{need.path, errno == EACCES ? kWrongMode : kMissing, strerror(errno)}};
    // A file that is too short would kill the process that reads its mapping.
    if (fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size < off_t{sizeof(FramePage)})
        return {{need.path, kWrongContent, "holds " + std::to_string(status.st_size) + " bytes, not a page"}};
    void *page = mmap(nullptr, static_cast<size_t>(sysconf(_SC_PAGESIZE)), PROT_READ, MAP_SHARED, fd.get(), 0);
    if (page == MAP_FAILED)
        return {{need.path, kWrongKind, std::string("cannot be mapped: ") + strerror(errno)}};
    const std::string flaw = page_flaw(*static_cast<const FramePage *>(page));
    munmap(page, static_cast<size_t>(sysconf(_SC_PAGESIZE)));
    if (flaw.empty())
        return {};
    return {{need.path, kWrongContent, flaw, "configure the FPGA and restart its frame driver"}};
}

std::vector<Problem> examine_library(const Need &need)
{
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {{need.path, kUnreadable, strerror(errno)}};
    const UniqueFd in{ends[0]};
    UniqueFd out{ends[1]};
    const pid_t child = fork();
    if (child == 0)
        load_in_child(need.path, out.get());
    out.reset();
    const std::string text = text_from(in.get());
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return {{need.path, kUnreadable, strerror(errno)}};
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {};
    const bool aborts = WIFSIGNALED(status);
    return {{need.path, aborts ? "aborts" : kMissing, text}};
}

} // namespace ddalctl::doctor
