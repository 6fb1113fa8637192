// Interface of the FPGA's timer driver: node, requests and records, the same on every target.
#pragma once

#include <cstdint>

namespace ddal::platform {

inline constexpr const char *kEmtimerNode = "/dev/emtimer";

inline constexpr uint32_t kEmtimerConfig = 0x40187400;
inline constexpr uint32_t kEmtimerCreate = 0xC01C7401;
inline constexpr uint32_t kEmtimerSettime = 0x40147402;
inline constexpr uint32_t kEmtimerDestroy = 0xC00C7403;

struct EmtimerConfigRequest {
    uint32_t a[6];
};
static_assert(sizeof(EmtimerConfigRequest) == 24);

struct EmtimerCreateRequest {
    uint32_t setting[4];
    uint32_t a;
    uint32_t b;
    uint32_t id; // out
};
static_assert(sizeof(EmtimerCreateRequest) == 28);

struct EmtimerSettimeRequest {
    uint32_t setting[4];
    uint32_t id;
};
static_assert(sizeof(EmtimerSettimeRequest) == 20);

struct EmtimerDestroyRequest {
    uint32_t id;
    uint32_t out1;
    uint32_t out2;
};
static_assert(sizeof(EmtimerDestroyRequest) == 12);

} // namespace ddal::platform
