// Interface of the CMA kernel driver: nodes, requests and records, the same on every target.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ddal::dsp {

inline constexpr const char *kCmaNode = "/dev/cma";        // file offset = physical address
inline constexpr const char *kCmaRegionList = "/proc/cma"; // a header line, then one line per region

inline constexpr uint32_t kCmaInitialise = 0xFE01;
inline constexpr uint32_t kCmaAllocate = 0xC004FE03; // encodes a size of 4 bytes, but the record has 12
inline constexpr uint32_t kCmaEnablePmu = 0xFE04;

struct CmaAllocRequest {
    uint32_t mem_type;
    uint32_t size;
    uint32_t physical; // filled by the driver
};
static_assert(sizeof(CmaAllocRequest) == 12 && offsetof(CmaAllocRequest, size) == 4 &&
              offsetof(CmaAllocRequest, physical) == 8);

} // namespace ddal::dsp
