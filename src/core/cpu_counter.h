// The free-running counter of the processor, the time base of the radio frame.
#pragma once

#include <cstdint>

#if !defined(__arm__)
#include <ctime>
#endif

namespace ddal::core {

inline constexpr uint32_t kCpuCounterHz = 204'800'000;

#if defined(__arm__)

// Reads the generic timer's virtual count. The barrier keeps the processor from reading it ahead of earlier loads.
inline uint64_t cpu_counter()
{
    uint64_t count;
    asm volatile("isb\n\tmrrc p15, 1, %Q0, %R0, c14" : "=r"(count) : : "memory");
    return count;
}

inline uint32_t cpu_counter_frequency()
{
    uint32_t frequency;
    asm volatile("mrc p15, 0, %0, c14, c0, 0" : "=r"(frequency));
    return frequency;
}

#else

// A development machine has no such counter: scales the monotonic clock to the frequency of the board.
inline uint64_t cpu_counter()
{
    constexpr uint64_t kCountsPer625Nanoseconds = 128;
    static_assert(kCountsPer625Nanoseconds * 1'000'000'000 / 625 == kCpuCounterHz);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kCpuCounterHz +
           static_cast<uint64_t>(now.tv_nsec) * kCountsPer625Nanoseconds / 625;
}

inline uint32_t cpu_counter_frequency()
{
    return kCpuCounterHz;
}

#endif

} // namespace ddal::core
