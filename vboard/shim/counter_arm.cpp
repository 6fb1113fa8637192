// The processor counter under a user-mode emulator, which has none: the two instructions that read it trap, and the
// trap is answered here from the board's clock. Nothing of this is used on other processors.
#include "shim.h"

#if defined(__arm__)

#include <signal.h>
#include <time.h>
#include <ucontext.h>

namespace vboard::shim {

namespace {

constexpr uint32_t kCounterHz = 204'800'000;

struct sigaction g_previous;

extern "C" int shim_clock_gettime(clockid_t clock, timespec *out) __asm__("clock_gettime");

uint64_t counter()
{
    timespec now;
    shim_clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kCounterHz + static_cast<uint64_t>(now.tv_nsec) * 128 / 625;
}

unsigned long &register_of(ucontext_t &context, unsigned number)
{
    return (&context.uc_mcontext.arm_r0)[number];
}

// Thumb instructions of 32 bits are two halfwords, the leading one first.
uint32_t instruction_at(unsigned long pc, bool thumb)
{
    if (!thumb)
        return *reinterpret_cast<const uint32_t *>(pc);
    const auto *half = reinterpret_cast<const uint16_t *>(pc);
    return static_cast<uint32_t>(half[0]) << 16 | half[1];
}

void answer(int number, siginfo_t *info, void *opaque)
{
    auto &context = *static_cast<ucontext_t *>(opaque);
    const bool thumb = (context.uc_mcontext.arm_cpsr & 0x20) != 0;
    const uint32_t op = instruction_at(context.uc_mcontext.arm_pc, thumb);
    if ((op & 0x0ff00fff) == 0x0c500f1e) { // mrrc p15, 1, low, high, c14
        const KeepErrno keep;
        const uint64_t count = counter();
        register_of(context, op >> 12 & 15) = static_cast<unsigned long>(count);
        register_of(context, op >> 16 & 15) = static_cast<unsigned long>(count >> 32);
    } else if ((op & 0x0fff0fff) == 0x0e1e0f10) { // mrc p15, 0, register, c14, c0, 0
        register_of(context, op >> 12 & 15) = kCounterHz;
    } else {
        if (g_previous.sa_flags & SA_SIGINFO)
            g_previous.sa_sigaction(number, info, opaque);
        else
            signal(SIGILL, SIG_DFL);
        return;
    }
    context.uc_mcontext.arm_pc += 4;
}

// Before the constructor of the library, which checks the counter's frequency.
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
