// Physical memory through /dev/mem.
#include <ddal/mem.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "board/memory_driver.h"
#include "core/log.h"
#include "core/mapping.h"
#include "core/unique_fd.h"

using ddal::board::kMemoryNode;
using ddal::core::Mapping;
using ddal::core::note_access;
using ddal::core::UniqueFd;

namespace {

constexpr size_t kSocLength = 0x2360000;

std::atomic<void *> g_soc{nullptr};
std::atomic<size_t> g_page_size{0}; // 0 until the first ddal_mem_map_addr

} // namespace

void *ddal_map_soc()
{
    void *present = g_soc.load();
    if (present)
        return present;

    const UniqueFd fd{open(kMemoryNode, O_RDONLY | O_DSYNC | O_CLOEXEC)};
    if (!fd)
        return log_error(nullptr, "Error opening /dev/mem to map SoC registers: %m\n");
    Mapping made{kSocLength, PROT_READ, MAP_SHARED, fd.get(), 0};
    if (!made) {
        note_access(kMemoryNode);
        return log_error(nullptr, "Error mmaping SoC registers: %m\n");
    }

    // When two first calls race, one keeps its mapping and both return it.
    if (g_soc.compare_exchange_strong(present, made.get()))
        return made.release();
    return present;
}

int ddal_unmap_soc()
{
    const Mapping mapped{g_soc.exchange(nullptr), kSocLength};
    return 0;
}

void *ddal_mem_map_addr(uint64_t physical, uint32_t size)
{
    if (g_page_size == 0)
        g_page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const uint64_t offset = physical % g_page_size;
    const uint64_t length = offset + size;

    const UniqueFd fd{open(kMemoryNode, O_RDWR | O_SYNC | O_CLOEXEC)};
    if (!fd)
        return log_error(nullptr, "error open /dev/mem: %m\n");
    Mapping made;
    if (length <= SIZE_MAX)
        made = Mapping{static_cast<size_t>(length), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(),
                       static_cast<off_t>(physical - offset)};
    else
        errno = ENOMEM;
    if (!made) {
        note_access(kMemoryNode);
        return log_error(nullptr, "failed to map address 0x%llx size 0x%x: %m\n",
                         static_cast<unsigned long long>(physical), size);
    }
    return static_cast<char *>(made.release()) + offset;
}

int ddal_mem_unmap_addr(void *addr, uint32_t size)
{
    const size_t page_size = g_page_size;
    if (!addr || page_size == 0)
        return -EINVAL;
    const size_t offset = reinterpret_cast<uintptr_t>(addr) % page_size;
    const size_t length = (size + offset + page_size - 1) / page_size * page_size;
    return munmap(static_cast<char *>(addr) - offset, length) == 0 ? 0 : ddal::core::minus_errno();
}
