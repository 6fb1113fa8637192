// The processor counter under a user-mode emulator, answered from the board's clock. Only ARM programs use it.
#include "shim.h"

#if defined(__arm__)

#include <signal.h>
#include <time.h>

#include "counter_trap.h"

namespace vboard::shim {

namespace {

struct sigaction g_previous;

extern "C" int shim_clock_gettime(clockid_t clock, timespec *out) __asm__("clock_gettime");

uint64_t counter()
{
    const KeepErrno keep;
    timespec now;
    shim_clock_gettime(CLOCK_MONOTONIC, &now);
    return counts_of(now.tv_sec, now.tv_nsec);
}

void answer(int number, siginfo_t *info, void *context)
{
    if (answer_counter_trap(*static_cast<ucontext_t *>(context), counter))
        return;
    if (g_previous.sa_flags & SA_SIGINFO)
        g_previous.sa_sigaction(number, info, context);
    else
        signal(SIGILL, SIG_DFL);
}

// Runs before the constructor of the library, which checks the counter's frequency.
__attribute__((constructor)) void install()
{
    struct sigaction action {};
    action.sa_sigaction = answer;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(SIGILL, &action, &g_previous);
}

} // namespace

} // namespace vboard::shim

#endif
