// Interface of the FPGA's frame driver: node, requests and the page that it publishes once per radio frame.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/cpu_counter.h"

namespace ddal::platform {

inline constexpr const char *kFrameNode = "/dev/fpga_frame";

inline constexpr uint32_t kFrameWaitNext = 0xE560; // the caller's argument is passed through
inline constexpr uint32_t kFrameWaitFor =
    0x4004E561; // argument: pointer to the 32-bit frame number; EAGAIN: no frame count

// In 32-bit words, because that is how both sides load and store it.
struct FramePage {
    uint32_t bcn_low; // frame count; all ones: not valid
    uint32_t bcn_high;
    uint32_t a_sec; // monotonic time of the frame start
    uint32_t a_nsec;
    uint32_t counter_low; // processor counter at the frame start
    uint32_t counter_high;
    uint32_t sequence; // odd while the driver writes
    uint32_t b_sec;    // real time of the frame start
    uint32_t b_nsec;
};
static_assert(sizeof(FramePage) == 36 && offsetof(FramePage, a_sec) == 8 && offsetof(FramePage, counter_low) == 16 &&
              offsetof(FramePage, sequence) == 24 && offsetof(FramePage, b_sec) == 28);

inline constexpr uint64_t kNoFrameCount = UINT64_MAX;

inline constexpr uint32_t kFramesPerSecond = 100;
inline constexpr uint32_t kCountsPerFrame = core::kCpuCounterHz / kFramesPerSecond;
inline constexpr uint32_t kFrameNanoseconds = 10'000'000;
inline constexpr uint32_t kSfnMax = 4095; // the SFN is the low 12 bits of the frame count

// Sub-frame offsets are expressed in units of 1 / 1,228,800,000 s.
inline constexpr uint32_t kUnitsPerCount = 6;
inline constexpr uint32_t kUnitsPerFrame = kCountsPerFrame * kUnitsPerCount;
inline constexpr uint32_t kUnitsPerSecond = kUnitsPerFrame * kFramesPerSecond;

} // namespace ddal::platform
