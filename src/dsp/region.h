// The DMA regions of this process: the address of each mapping, and its physical address for the hardware.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace ddal::dsp {

struct Region {
    uint32_t virt;
    uint32_t phys;
    uint32_t size;
    uint32_t difference; // virt - phys
};
static_assert(sizeof(Region) == 16);

constexpr size_t kMaxRegions = 2;

// Written once, by the set-up. An unused entry has size 0 and holds no address.
extern std::array<Region, kMaxRegions> regions;

// Unsigned differences keep the tests right for a region that ends at the top of the address space.
inline bool region_phy_to_virt(uint32_t phys, uint32_t *virt)
{
    for (const Region &region : regions) {
        if (phys - region.phys < region.size) {
            *virt = phys + region.difference;
            return true;
        }
    }
    return false;
}

inline bool region_virt_to_phy(uint32_t virt, uint32_t *phys)
{
    for (const Region &region : regions) {
        if (virt - region.virt < region.size) {
            *phys = virt - region.difference;
            return true;
        }
    }
    return false;
}

// Reports whether all of [virt, virt + length) lies inside one region.
inline bool regions_hold(uint32_t virt, uint32_t length)
{
    for (const Region &region : regions) {
        const uint32_t offset = virt - region.virt;
        if (offset < region.size && region.size - offset >= length)
            return true;
    }
    return false;
}

} // namespace ddal::dsp
