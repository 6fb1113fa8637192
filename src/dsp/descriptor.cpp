// Translation of addresses between this process and the hardware: single ones, and those inside the queue manager's
// descriptors.
#include <ddal/osal.h>

#include <cstddef>
#include <cstdint>

#include "dsp/osal_log.h"
#include "dsp/region.h"

using namespace ddal::dsp;

namespace {

struct HostDescriptor {
    uint32_t info;
    uint32_t tag;
    uint32_t packet_info;
    uint32_t buffer_length;
    uint32_t buffer;
    uint32_t link;
    uint32_t original_buffer_length;
    uint32_t original_buffer;
};
static_assert(sizeof(HostDescriptor) == 32);
static_assert(offsetof(HostDescriptor, buffer) == 16 && offsetof(HostDescriptor, original_buffer) == 28);

constexpr uint32_t kTypeMask = 0xC0000000;    // of `info`; 0 is a host descriptor
constexpr uint32_t kLastOfChain = 0x40000000; // of `packet_info`: the host software's own marker
constexpr uint32_t kHandleHints = 0xF;        // low bits of a handle

void *as_pointer(uint32_t address)
{
    return reinterpret_cast<void *>(uintptr_t{address});
}

bool as_address(const void *pointer, uint32_t *address)
{
    *address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
    return *address == reinterpret_cast<uintptr_t>(pointer);
}

HostDescriptor *descriptor_at(uint32_t virt)
{
    return static_cast<HostDescriptor *>(as_pointer(virt & ~kHandleHints));
}

bool is_whole_descriptor(uint32_t virt)
{
    return regions_hold(virt & ~kHandleHints, sizeof(HostDescriptor));
}

// Limits the length of a chain: a longer one has a loop.
uint32_t descriptors_in_regions()
{
    uint32_t count = 0;
    for (const Region &region : regions)
        count += region.size / uint32_t{sizeof(HostDescriptor)};
    return count;
}

struct ToVirtual {
    static constexpr const char *kFunction = "Osal_qmssConvertDescPhyToVirt";
    static constexpr bool kEndsAtMarker = true;
    static bool convert(uint32_t address, uint32_t *out) { return region_phy_to_virt(address, out); }
    static uint32_t virtual_of(uint32_t, uint32_t converted) { return converted; }
};

struct ToPhysical {
    static constexpr const char *kFunction = "Osal_qmssConvertDescVirtToPhy";
    static constexpr bool kEndsAtMarker = false;
    static bool convert(uint32_t address, uint32_t *out) { return region_virt_to_phy(address, out); }
    static uint32_t virtual_of(uint32_t address, uint32_t) { return address; }
};

template <typename Direction>
bool convert_buffers(HostDescriptor *desc)
{
    if (desc->buffer != 0 && !Direction::convert(desc->buffer, &desc->buffer)) {
        osal_log_as(Direction::kFunction, "invalid descriptor buffer pointer %p->%p", static_cast<void *>(desc),
                    as_pointer(desc->buffer));
        return false;
    }
    if (desc->original_buffer != 0 && !Direction::convert(desc->original_buffer, &desc->original_buffer)) {
        osal_log_as(Direction::kFunction, "invalid descriptor original buffer pointer %p->%p",
                    static_cast<void *>(desc), as_pointer(desc->original_buffer));
        return false;
    }
    return true;
}

// Converts every pointer of the chain that starts at `desc`. Pointers converted before a failure stay converted.
template <typename Direction>
bool convert_chain(HostDescriptor *desc)
{
    for (uint32_t left = descriptors_in_regions(); convert_buffers<Direction>(desc); --left) {
        const uint32_t link = desc->link;
        if (link == 0)
            return true;

        uint32_t converted;
        bool valid = Direction::convert(link, &converted);
        if (valid) {
            desc->link = converted;
            if (Direction::kEndsAtMarker && (desc->packet_info & kLastOfChain) != 0) {
                desc->packet_info &= ~kLastOfChain;
                return true;
            }
            valid = left > 1 && is_whole_descriptor(Direction::virtual_of(link, converted));
        }
        if (!valid) {
            osal_log_as(Direction::kFunction, "invalid descriptor link pointer %p->%p", static_cast<void *>(desc),
                        as_pointer(link));
            return false;
        }
        desc = descriptor_at(Direction::virtual_of(link, converted));
    }
    return false;
}

template <typename Direction>
void *convert_handle(void *handle)
{
    if (!handle)
        return nullptr;

    uint32_t address;
    uint32_t converted;
    if (!as_address(handle, &address) || !Direction::convert(address, &converted)) {
        osal_log_as(Direction::kFunction, "invalid descriptor address %p", handle);
        return nullptr;
    }

    // A monolithic descriptor carries no pointers and may be shorter than a host descriptor.
    const uint32_t virt = Direction::virtual_of(address, converted);
    HostDescriptor *const desc = descriptor_at(virt);
    const bool has_type = regions_hold(virt & ~kHandleHints, sizeof desc->info);
    if (has_type && (desc->info & kTypeMask) != 0)
        return as_pointer(converted);
    if (!has_type || !is_whole_descriptor(virt)) {
        osal_log_as(Direction::kFunction, "invalid descriptor address %p", handle);
        return nullptr;
    }
    return convert_chain<Direction>(desc) ? as_pointer(converted) : nullptr;
}

// Converts a single pointer. `kind` names in the log what the pointer should be.
void *convert_pointer(const char *caller, void *addr, bool (*convert)(uint32_t, uint32_t *), const char *kind)
{
    uint32_t address;
    uint32_t converted;
    if (!addr)
        return nullptr;
    if (as_address(addr, &address) && convert(address, &converted))
        return as_pointer(converted);
    osal_log_as(caller, "invalid %s address %p", kind, addr);
    return nullptr;
}

} // namespace

void *Osal_qmssPhyToVirt(void *addr)
{
    return convert_pointer(__func__, addr, region_phy_to_virt, "physical");
}

void *Osal_qmssVirtToPhy(void *addr)
{
    return convert_pointer(__func__, addr, region_virt_to_phy, "virtual");
}

void *Osal_saGetSCPhyAddr(void *addr)
{
    return convert_pointer(__func__, addr, region_virt_to_phy, "virtual");
}

void *Osal_qmssConvertDescPhyToVirt(uint32_t, void *desc)
{
    return convert_handle<ToVirtual>(desc);
}

void *Osal_qmssConvertDescVirtToPhy(uint32_t, void *desc)
{
    return convert_handle<ToPhysical>(desc);
}
