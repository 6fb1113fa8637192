#include "bench/system_calls.h"

#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80; // as PTRACE_O_TRACESYSGOOD reports it

long count_stops(void (*code)())
{
    const pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(1);
        raise(SIGSTOP);
        code();
        _exit(0);
    }

    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status))
        return -1;
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    long stops = 0;
    while (ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 && waitpid(pid, &status, 0) == pid && WIFSTOPPED(status))
        stops += WSTOPSIG(status) == kSystemCallStop;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? stops : -1;
}

} // namespace

namespace bench {

long count_system_calls(void (*code)())
{
    const long with = count_stops(code);
    const long without = count_stops([] {});
    return with < 0 || without < 0 ? -1 : (with - without) / 2; // a call stops on entry and on exit
}

} // namespace bench
