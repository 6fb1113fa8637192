// Physically contiguous memory for the DMA engines.
#include <ddal/cma.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <utility>

#include "core/log.h"
#include "core/stream.h"
#include "core/unique_fd.h"
#include "core/unique_stream.h"
#include "dsp/cma_driver.h"
#include "dsp/low_mapping.h"
#include "dsp/region.h"

using ddal::core::UniqueFd;
using ddal::core::UniqueStream;

namespace ddal::dsp {

std::array<Region, kMaxRegions> regions{};

namespace {

int cma_fd = -1; // open for the life of the process once the set-up has succeeded
int setup_result = DDAL_ERR_FAILURE;
pthread_once_t setup_once = PTHREAD_ONCE_INIT;

bool skip_line(FILE *stream)
{
    const core::SignalHold hold;
    int c = getc(stream);
    if (c == EOF)
        return false;
    while (c != '\n' && c != EOF)
        c = getc(stream);
    return ferror(stream) == 0;
}

// Reads the next region of the list: physical address, a word, size, a word. Both numbers are hexadecimal.
bool next_entry(FILE *stream, uint64_t *phys, uint64_t *size)
{
    const core::SignalHold hold;
    return fscanf(stream, "%" SCNx64 " %*s %" SCNx64 " %*s\n", phys, size) == 2;
}

bool map_region(int fd, uint64_t phys, uint64_t size, Region *region)
{
    constexpr uint64_t kEndOfAddresses = UINT64_C(1) << 32;
    if (phys >= kEndOfAddresses || size > kEndOfAddresses - phys || size == kEndOfAddresses) {
        errno = EOVERFLOW;
        return false;
    }

    region->phys = static_cast<uint32_t>(phys);
    region->size = static_cast<uint32_t>(size);
    region->virt = map_below_4gib(fd, static_cast<off_t>(phys), region->size);
    region->difference = region->virt - region->phys;
    return region->virt != 0;
}

// Regions that are unmapped again unless the whole list could be mapped.
class RegionSet {
public:
    RegionSet() = default;
    RegionSet(const RegionSet &) = delete;
    RegionSet &operator=(const RegionSet &) = delete;
    ~RegionSet()
    {
        for (size_t i = 0; i < count_; ++i)
            unmap_below_4gib(entries_[i].virt, entries_[i].size);
    }

    bool full() const { return count_ == entries_.size(); }
    void add(const Region &region) { entries_[count_++] = region; }

    void publish()
    {
        // Callers request the region of the second line most often, so it is looked up first.
        if (full())
            std::swap(entries_[0], entries_[1]);
        regions = entries_;
        count_ = 0;
    }

private:
    std::array<Region, kMaxRegions> entries_{};
    size_t count_ = 0;
};

int request(uint32_t number, void *argument)
{
    int result;
    do
        result = ioctl(cma_fd, number, argument);
    while (result < 0 && errno == EINTR);
    return result;
}

const char *memory_name(uint32_t mem_type)
{
    return mem_type == DDAL_CMA_MSM ? "MSM" : "DDR";
}

void *as_pointer(uint32_t address)
{
    return reinterpret_cast<void *>(uintptr_t{address});
}

} // namespace

void process_init_once(void)
{
    UniqueFd device{open(kCmaNode, O_RDWR | O_CLOEXEC)};
    if (!device) {
        setup_result = log_errno("Unable to open CMA device, %m\n");
        return;
    }

    const UniqueStream list{fopen(kCmaRegionList, "re")};
    if (!list) {
        setup_result = log_errno("Unable to open /proc/cma, %m\n");
        return;
    }

    errno = 0;
    if (!skip_line(list.get())) {
        setup_result = log_errno("Unable to parse /proc/cma\n");
        return;
    }

    RegionSet set;
    uint64_t phys;
    uint64_t size;
    while (next_entry(list.get(), &phys, &size)) {
        if (set.full()) {
            log_line(LOG_ERR, "More than %u entries in /proc/cma\n", static_cast<unsigned>(kMaxRegions));
            return;
        }
        Region region{};
        if (!map_region(device.get(), phys, size, &region)) {
            setup_result = log_errno("Unable to mmap DMA address %08x +%x, %m\n", static_cast<unsigned>(phys),
                                     static_cast<unsigned>(size));
            return;
        }
        set.add(region);
    }

    set.publish();
    cma_fd = device.release();
    setup_result = 0;
}

} // namespace ddal::dsp

using namespace ddal::dsp;

int ddal_cma_process_init(void)
{
    pthread_once(&setup_once, process_init_once);
    return setup_result;
}

int ddal_cma_init_once(void)
{
    const int result = ddal_cma_process_init();
    if (result != 0)
        return result;
    if (request(kCmaInitialise, nullptr) < 0)
        return log_errno("Unable to initialize CMA device, %m\n");
    return 0;
}

int ddal_cma_alloc(uint32_t mem_type, uint32_t size, uint32_t *virt_addr)
{
    if (!virt_addr)
        return log_error(-EINVAL, "Invalid argument virt_addr (NULL)\n");
    if (size == 0)
        return log_error(-EINVAL, "Invalid argument size (0)\n");
    if (mem_type != DDAL_CMA_MSM && mem_type != DDAL_CMA_DDR)
        return log_error(-EINVAL, "Invalid argument mem_type (%u)\n", mem_type);

    CmaAllocRequest allocation{mem_type, size, 0};
    if (request(kCmaAllocate, &allocation) < 0)
        return log_errno("Unable to allocate %s of size 0x%zx, %m\n", memory_name(mem_type), size_t{size});

    const int result = ddal_cma_phy_to_virt(allocation.physical, virt_addr);
    return log_failure(result, "ddal_cma_phy_to_virt returned failure %d for addr %p\n\n", result,
                       as_pointer(allocation.physical));
}

int ddal_cma_phy_to_virt(uint32_t dma_addr, uint32_t *virt_addr)
{
    if (!virt_addr)
        return log_error(-EINVAL, "Invalid argument virt_addr (NULL)\n");
    if (region_phy_to_virt(dma_addr, virt_addr))
        return 0;
    *virt_addr = 0;
    return log_error(-EFAULT, "Invalid DMA addr %p\n", as_pointer(dma_addr));
}

int ddal_cma_virt_to_phy(uint32_t virt_addr, uint32_t *dma_addr)
{
    if (!dma_addr)
        return log_error(-EINVAL, "Invalid argument dma_addr (NULL)\n");
    if (region_virt_to_phy(virt_addr, dma_addr))
        return 0;
    *dma_addr = 0;
    return log_error(-EFAULT, "Invalid virtual addr %p\n", as_pointer(virt_addr));
}

int ddal_cma_enable_user_pmu(void)
{
    if (request(kCmaEnablePmu, nullptr) < 0)
        return log_errno("Unable to enable user access to PMU\n");
    return 0;
}
