#include "dsp/low_mapping.h"

#include <cerrno>
#include <sys/mman.h>

#include "core/last_failure.h"

namespace ddal::dsp {

namespace {

// A 64-bit kernel maps at a low address only on request. A 32-bit process has no other addresses.
#ifdef MAP_32BIT
constexpr int kMapFlags = MAP_SHARED | MAP_32BIT;
#else
constexpr int kMapFlags = MAP_SHARED;
#endif

} // namespace

uint32_t map_below_4gib(int fd, off_t offset, uint32_t size)
{
    void *const base = mmap(nullptr, size, PROT_READ | PROT_WRITE, kMapFlags, fd, offset);
    if (base == MAP_FAILED) {
        core::note_access(fd);
        return 0;
    }

    const auto first = reinterpret_cast<uintptr_t>(base);
    if (uint64_t{first} + size > UINT64_C(1) << 32) {
        munmap(base, size);
        errno = ENOMEM;
        return 0;
    }
    return static_cast<uint32_t>(first);
}

void unmap_below_4gib(uint32_t address, uint32_t size)
{
    munmap(reinterpret_cast<void *>(uintptr_t{address}), size);
}

} // namespace ddal::dsp
