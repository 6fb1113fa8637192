// The limit of a walk over a chain. Where physical and virtual addresses are equal, only this limit ends a loop. The
// test therefore makes such a region.
#include <sys/mman.h>

#include <ddal/osal.h>
#include <gtest/gtest.h>

#include "dsp/region.h"
#include "support/log_watch.h"

using namespace testing_board;

namespace {

#ifdef MAP_32BIT
constexpr int kLow = MAP_32BIT;
#else
constexpr int kLow = 0;
#endif
constexpr uint32_t kSize = 4096, kWords = 8, kLink = 5, kDescriptors = kSize / 32;

TEST(ChainBound, VisitsEveryDescriptorOfTheMemoryOnce)
{
    auto *const words = static_cast<uint32_t *>(
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | kLow, -1, 0));
    ASSERT_NE(words, MAP_FAILED);
    const auto base = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(words));
    ddal::dsp::regions = {{{base, base, kSize, 0}, {}}};

    for (const auto convert : {Osal_qmssConvertDescPhyToVirt, Osal_qmssConvertDescVirtToPhy}) {
        for (uint32_t i = 0; i < kDescriptors; ++i)
            words[i * kWords + kLink] = i + 1 < kDescriptors ? base + (i + 1) * 32 : 0;
        EXPECT_EQ(convert(0, words), words);

        words[(kDescriptors - 1) * kWords + kLink] = base; // and from the last one back to the first
        LogWatch log;
        EXPECT_EQ(convert(0, words), nullptr);
        const auto lines = log.take();
        ASSERT_EQ(lines.size(), 1u);
        char line[80];
        snprintf(line, sizeof line, "invalid descriptor link pointer 0x%x->0x%x", base + kSize - 32, base);
        EXPECT_NE(lines[0].find(line), std::string::npos) << lines[0];
    }
    ddal::dsp::regions = {};
    munmap(words, kSize);
}

} // namespace
