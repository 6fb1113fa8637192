// The processor counter of ARM programs under a user-mode emulator. The emulator lacks the counter, so the instructions
// that read it and its frequency trap. Answers such a trap.
#pragma once

#if defined(__arm__)

#include <cstdint>
#include <ucontext.h>

namespace vboard {

constexpr uint32_t kCounterHz = 204'800'000;

// Converts a time of the monotonic clock to counts.
constexpr uint64_t counts_of(int64_t seconds, long nanoseconds)
{
    return static_cast<uint64_t>(seconds) * kCounterHz + static_cast<uint64_t>(nanoseconds) * 128 / 625;
}

// A 32-bit Thumb instruction is two halfwords, the leading one first.
inline uint32_t instruction_at(unsigned long pc, bool thumb)
{
    if (!thumb)
        return *reinterpret_cast<const uint32_t *>(pc);
    const auto *half = reinterpret_cast<const uint16_t *>(pc);
    return static_cast<uint32_t>(half[0]) << 16 | half[1];
}

// Performs the trapped instruction and steps over it. Returns false for any other instruction. Calls `counter` for the
// count.
template <typename Counter>
bool answer_counter_trap(ucontext_t &context, Counter counter)
{
    const auto register_of = [&](uint32_t number) -> unsigned long & { return (&context.uc_mcontext.arm_r0)[number]; };
    const bool thumb = (context.uc_mcontext.arm_cpsr & 0x20) != 0;
    const uint32_t op = instruction_at(context.uc_mcontext.arm_pc, thumb);
    if ((op & 0x0ff00fff) == 0x0c500f1e) { // mrrc p15, 1, low, high, c14
        const uint64_t count = counter();
        register_of(op >> 12 & 15) = static_cast<unsigned long>(count);
        register_of(op >> 16 & 15) = static_cast<unsigned long>(count >> 32);
    } else if ((op & 0x0fff0fff) == 0x0e1e0f10) { // mrc p15, 0, register, c14, c0, 0
        register_of(op >> 12 & 15) = kCounterHz;
    } else {
        return false;
    }
    context.uc_mcontext.arm_pc += 4;
    return true;
}

} // namespace vboard

#endif
