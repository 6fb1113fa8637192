#include "cli/fence.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "core/unique_fd.h"

namespace vboard {

namespace fs = std::filesystem;
using ddal::core::UniqueFd;

namespace {

// Shared by the process that wants another one inside and those on the way there.
struct Progress {
    pid_t started;
    char fault[256];
};

class SharedProgress {
public:
    SharedProgress() : at_(mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (at_ == MAP_FAILED)
            throw std::bad_alloc();
    }
    ~SharedProgress() { munmap(at_, sizeof(Progress)); }
    SharedProgress(const SharedProgress &) = delete;
    SharedProgress &operator=(const SharedProgress &) = delete;
    Progress *operator->() const { return static_cast<Progress *>(at_); }

private:
    void *at_;
};

pid_t child_of_parent()
{
    return static_cast<pid_t>(syscall(SYS_clone, CLONE_PARENT | SIGCHLD, 0, 0, 0, 0));
}

// Only a child is in the process namespace that a process enters. So one process enters and starts a second one, as a
// child of the caller.
pid_t start_behind(const Body &enter, const Body &arrange, const Body &body)
{
    const SharedProgress progress;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const UniqueFd from{ends[0]};
    UniqueFd to{ends[1]};
    const auto step = [&](const Body &action) {
        try {
            action();
        } catch (const std::exception &error) {
            strncpy(progress->fault, error.what(), sizeof progress->fault - 1);
            _exit(1);
        }
    };
    const pid_t way = fork();
    if (way == 0) {
        step(enter);
        const pid_t started = child_of_parent();
        if (started != 0) {
            progress->started = started;
            _exit(0);
        }
        step(arrange);
        to = UniqueFd{};
        body();
        _exit(0);
    }
    to = UniqueFd{};
    char end;
    static_cast<void>(!read(from.get(), &end, 1)); // until the second process is ready, or nothing is left
    waitpid(way, nullptr, 0);
    if (progress->fault[0] || progress->started <= 0) {
        if (progress->started > 0)
            waitpid(progress->started, nullptr, 0);
        throw FenceError(progress->fault[0] ? progress->fault : "fork");
    }
    return progress->started;
}

// The life of a fence's first process: it reaps what its children leave.
void keep_fence(const Body &body)
{
    prctl(PR_SET_NAME, "vboard-fence");
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    setsid();
    close_range(0, ~0u, 0);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    for (pid_t ended = 0; ended != child;)
        if ((ended = wait(nullptr)) < 0 && errno != EINTR)
            _exit(1);
}

fs::path space_of(const std::string &process, const std::string &kind)
{
    std::error_code gone;
    return fs::read_symlink("/proc/" + process + "/ns/" + kind, gone);
}

void join_spaces(pid_t member)
{
    const UniqueFd process{static_cast<int>(syscall(SYS_pidfd_open, member, 0))};
    int spaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS;
    if (space_of(std::to_string(member), "user") != space_of("self", "user"))
        spaces |= CLONE_NEWUSER;
    if (!process || setns(process.get(), spaces) != 0)
        throw FenceError(std::string("setns: ") + std::strerror(errno));
}

} // namespace

pid_t start_fence(const FencePlan &plan, const Body &body)
{
    const auto enter = [&] {
        enter_namespaces(plan.real_net);
        arrange_files(plan);
    };
    const auto arrange = [&] {
        arrange_processes();
        drop_privileges(plan.real_net);
    };
    return start_behind(enter, arrange, [&] { keep_fence(body); });
}

pid_t start_inside(pid_t member, const std::string &folder, bool real_net, const Body &body)
{
    const auto arrange = [&] {
        drop_privileges(real_net);
        reopen_inherited();
        if (chdir(folder.c_str()) != 0 && chdir("/") != 0)
            throw FenceError(std::string("chdir: ") + std::strerror(errno));
    };
    return start_behind([&] { join_spaces(member); }, arrange, body);
}

bool is_fenced(pid_t member)
{
    return space_of(std::to_string(member), "mnt") != space_of("self", "mnt");
}

} // namespace vboard
