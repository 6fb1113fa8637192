// Address conversion and descriptor chains, compared with hand-written equivalents that also know two regions.
#include <ddal/cma.h>
#include <ddal/osal.h>

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <random>
#include <vector>

#include "bench/comparison.h"
#include "dsp/cma_driver.h"

namespace {

constexpr int kRepetitions = 9;
constexpr uint32_t kLinks = 1024;
constexpr uint32_t kFirst = 0x00100000, kFirstSize = 0x00100000, kSecond = 0x00400000, kSecondSize = 0x00400000;

char region_list[128];

} // namespace

// Serves the kernel's list of regions: a namespace cannot put a file into /proc.
extern "C" FILE *fopen64(const char *path, const char *mode)
{
    if (strcmp(path, ddal::dsp::kCmaRegionList) == 0)
        return fmemopen(region_list, strlen(region_list), "r");
    using Open = FILE *(const char *, const char *);
    return reinterpret_cast<Open *>(dlsym(RTLD_NEXT, "fopen64"))(path, mode);
}

namespace {

struct Range {
    uint32_t virt;
    uint32_t phys;
    uint32_t size;
};
Range ranges[2];

__attribute__((noinline, noclone)) int phy_to_virt_by_hand(uint32_t phys, uint32_t *virt)
{
    for (const Range &range : ranges) {
        if (phys >= range.phys && phys - range.phys < range.size) {
            *virt = phys - range.phys + range.virt;
            return 0;
        }
    }
    return -1;
}

__attribute__((noinline, noclone)) int virt_to_phy_by_hand(uint32_t virt, uint32_t *phys)
{
    for (const Range &range : ranges) {
        if (virt >= range.virt && virt - range.virt < range.size) {
            *phys = virt - range.virt + range.phys;
            return 0;
        }
    }
    return -1;
}

// Returns addresses of both regions in an order that a branch predictor cannot learn.
std::vector<uint32_t> addresses()
{
    std::mt19937 random{1};
    std::vector<uint32_t> list;
    for (int i = 0; i < 4096; ++i)
        list.push_back(random() % 2 ? kFirst + random() % kFirstSize : kSecond + random() % kSecondSize);
    return list;
}

template <int convert(uint32_t, uint32_t *)>
void convert_addresses(benchmark::State &state)
{
    const std::vector<uint32_t> list = addresses();
    uint32_t virt = 0;
    size_t i = 0;
    for (auto _ : state) {
        if (convert(list[i++ % list.size()], &virt) != 0)
            state.SkipWithError("address not converted");
        benchmark::DoNotOptimize(virt);
    }
}

void phy_to_virt_by_library(benchmark::State &state)
{
    convert_addresses<ddal_cma_phy_to_virt>(state);
}

void phy_to_virt_by_hand_written_lookup(benchmark::State &state)
{
    convert_addresses<phy_to_virt_by_hand>(state);
}

void *pointer(uint32_t address)
{
    return reinterpret_cast<void *>(uintptr_t{address});
}

enum { kBuffer = 4, kLink = 5, kOriginal = 7, kWords = 8 };

// Makes a chain of host descriptors in the second region with buffers in the first. Returns the physical address of its
// head.
uint32_t make_chain()
{
    uint32_t virt = 0;
    phy_to_virt_by_hand(kSecond, &virt);
    auto *words = static_cast<uint32_t *>(pointer(virt));
    memset(words, 0, kLinks * kWords * sizeof *words);
    for (uint32_t i = 0; i < kLinks; ++i, words += kWords) {
        words[kBuffer] = words[kOriginal] = kFirst + 64 * i;
        words[kLink] = i + 1 < kLinks ? kSecond + 32 * (i + 1) : 0;
    }
    return kSecond;
}

// One round converts in both directions, so that the chain ends as it began.
void chain_by_library(benchmark::State &state)
{
    void *const head = pointer(make_chain());
    for (auto _ : state) {
        if (Osal_qmssConvertDescVirtToPhy(0, Osal_qmssConvertDescPhyToVirt(0, head)) != head)
            state.SkipWithError("chain not converted");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * kLinks);
}

template <int convert(uint32_t, uint32_t *), bool to_virtual>
bool walk(uint32_t virt)
{
    while (virt != 0) {
        auto *const words = static_cast<uint32_t *>(pointer(virt));
        const uint32_t link = words[kLink];
        if (convert(words[kBuffer], &words[kBuffer]) != 0 || convert(words[kOriginal], &words[kOriginal]) != 0 ||
            (link != 0 && convert(link, &words[kLink]) != 0))
            return false;
        virt = to_virtual ? words[kLink] : link;
    }
    return true;
}

void chain_by_bare_loop(benchmark::State &state)
{
    uint32_t virt = 0;
    phy_to_virt_by_hand(make_chain(), &virt);
    for (auto _ : state) {
        if (!walk<phy_to_virt_by_hand, true>(virt) || !walk<virt_to_phy_by_hand, false>(virt))
            state.SkipWithError("chain not converted");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * kLinks);
}

BENCHMARK(phy_to_virt_by_hand_written_lookup)->Repetitions(kRepetitions);
BENCHMARK(phy_to_virt_by_library)->Repetitions(kRepetitions);
BENCHMARK(chain_by_bare_loop)->Repetitions(kRepetitions);
BENCHMARK(chain_by_library)->Repetitions(kRepetitions);

} // namespace

int main(int argc, char **argv)
{
    snprintf(region_list, sizeof region_list, "header\n%x A %x -\n%x B %x -\n", kFirst, kFirstSize, kSecond,
             kSecondSize);
    if (ddal_cma_process_init() != 0)
        return 1;
    // Same order as in the library, which looks in the second region first.
    ranges[0] = {0, kSecond, kSecondSize};
    ranges[1] = {0, kFirst, kFirstSize};
    for (Range &range : ranges)
        ddal_cma_phy_to_virt(range.phys, &range.virt);

    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("phy_to_virt_by_library", "phy_to_virt_by_hand_written_lookup", "an address conversion",
                        "a lookup of two ranges", 2);
    results.print_ratio("chain_by_library", "chain_by_bare_loop", "a chain of DMA descriptors", "a loop of lookups");
    printf("a link takes the %u-th part of half a chain's time\n", kLinks);
    return 0;
}
