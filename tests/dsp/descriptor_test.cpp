// Conversion of addresses, single and in descriptor chains. The board supplies the memory; this process sets it up
// once.
#include <cstring>

#include <ddal/cma.h>
#include <ddal/osal.h>
#include <ddal/osal_ext.h>
#include <gtest/gtest.h>

#include "support/log_watch.h"

using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;

constexpr uint32_t kDdr = 0xA0000000, kDdrSize = 0x04000000, kMsm = 0x0C000000, kMsmSize = 0x00600000;
constexpr uint32_t kMonolithic = 0x80000000, kMarker = 0x40000000;
constexpr uint32_t kBuffer = kMsm + 0x1000; // physical
const std::string kToVirtual = "3 Osal_qmssConvertDescPhyToVirt(): ";
const std::string kToPhysical = "3 Osal_qmssConvertDescVirtToPhy(): ";
enum { kInfo, kTag, kPacketInfo, kBufferLength, kBufferPointer, kLink, kOriginalLength, kOriginalPointer, kWords };

void *pointer(uint32_t address)
{
    return reinterpret_cast<void *>(uintptr_t{address});
}

uint32_t address(const void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

std::string hex(uint32_t value)
{
    char text[16];
    snprintf(text, sizeof text, "0x%x", value);
    return text;
}

uint32_t *virt(uint32_t phys)
{
    return static_cast<uint32_t *>(Osal_qmssPhyToVirt(pointer(phys)));
}

uint32_t virtual_of(uint32_t phys)
{
    return address(virt(phys));
}

// A chain of consecutive descriptors with physical addresses, as the hardware delivers them.
class Chain {
public:
    explicit Chain(uint32_t count, uint32_t hints = 0, uint32_t at = kDdr + 0x10000) : at_(at)
    {
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t *words = desc(i);
            memset(words, 0, kWords * sizeof *words);
            words[kTag] = words[kBufferLength] = words[kOriginalLength] = 0xEEEEEEEE; // not pointers
            words[kBufferPointer] = kBuffer + 64 * i;
            words[kOriginalPointer] = kBuffer + 64 * i;
            words[kLink] = i + 1 < count ? phys(i + 1) | hints : 0;
        }
    }
    uint32_t phys(uint32_t i) const { return at_ + 32 * i; }
    uint32_t *desc(uint32_t i) const { return virt(phys(i)); }
    bool is_physical(uint32_t i) const
    {
        const uint32_t *words = desc(i);
        return words[kBufferPointer] == kBuffer + 64 * i && words[kOriginalPointer] == kBuffer + 64 * i;
    }
    bool is_virtual(uint32_t i) const
    {
        const uint32_t *words = desc(i);
        return words[kBufferPointer] == virtual_of(kBuffer + 64 * i) &&
               words[kOriginalPointer] == words[kBufferPointer];
    }

private:
    uint32_t at_;
};

class Descriptor : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ddal_cma_process_init(), 0); }

    // Expects a conversion to fail with one line.
    static void expect_failure(void *(*convert)(uint32_t, void *), void *handle, const std::string &line)
    {
        LogWatch log;
        EXPECT_EQ(convert(0, handle), nullptr);
        EXPECT_EQ(log.take(), Lines{line});
    }
};

TEST_F(Descriptor, ConvertsAChainThereAndBack)
{
    for (const uint32_t count : {1u, 2u, 10'000u}) {
        const Chain chain(count, 5);
        const uint32_t handle = chain.phys(0) | 3;
        void *const converted = Osal_qmssConvertDescPhyToVirt(99, pointer(handle));
        EXPECT_EQ(address(converted), virtual_of(chain.phys(0)) | 3);
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_TRUE(chain.is_virtual(i)) << i;
            ASSERT_EQ(chain.desc(i)[kLink], i + 1 < count ? virtual_of(chain.phys(i + 1)) | 5 : 0) << i;
        }
        EXPECT_EQ(address(Osal_qmssConvertDescVirtToPhy(99, converted)), handle);
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_TRUE(chain.is_physical(i)) << i;
            ASSERT_EQ(chain.desc(i)[kLink], i + 1 < count ? chain.phys(i + 1) | 5 : 0) << i;
            for (const int word : {kTag, kBufferLength, kOriginalLength})
                ASSERT_EQ(chain.desc(i)[word], 0xEEEEEEEE) << i;
        }
    }
}

TEST_F(Descriptor, StopsAtTheMarkerOnlyTowardsVirtual)
{
    const Chain chain(3);
    chain.desc(1)[kPacketInfo] = kMarker | 0x123;
    void *const converted = Osal_qmssConvertDescPhyToVirt(0, pointer(chain.phys(0)));
    EXPECT_EQ(address(converted), virtual_of(chain.phys(0)));
    EXPECT_TRUE(chain.is_virtual(1));
    EXPECT_EQ(chain.desc(1)[kLink], virtual_of(chain.phys(2)));
    EXPECT_EQ(chain.desc(1)[kPacketInfo], 0x123u); // the marker is removed
    EXPECT_TRUE(chain.is_physical(2));

    const Chain whole(3);
    Osal_qmssConvertDescPhyToVirt(0, pointer(whole.phys(0)));
    whole.desc(1)[kPacketInfo] = kMarker;
    EXPECT_EQ(address(Osal_qmssConvertDescVirtToPhy(0, pointer(virtual_of(whole.phys(0))))), whole.phys(0));
    EXPECT_TRUE(whole.is_physical(2));
    EXPECT_EQ(whole.desc(1)[kPacketInfo], kMarker);
}

TEST_F(Descriptor, LeavesOtherTypesAlone)
{
    const Chain chain(1);
    chain.desc(0)[kInfo] = kMonolithic;
    EXPECT_EQ(address(Osal_qmssConvertDescPhyToVirt(0, pointer(chain.phys(0) | 2))), virtual_of(chain.phys(0)) | 2);
    EXPECT_EQ(address(Osal_qmssConvertDescVirtToPhy(0, pointer(virtual_of(chain.phys(0)) | 2))), chain.phys(0) | 2);
    EXPECT_TRUE(chain.is_physical(0));
    // The end of the memory may have less room than a host descriptor takes.
    const uint32_t end = kDdr + kDdrSize - 16;
    virt(end)[kInfo] = kMonolithic;
    EXPECT_EQ(address(Osal_qmssConvertDescPhyToVirt(0, pointer(end))), virtual_of(end));
}

TEST_F(Descriptor, ConvertsBuffersThatAreSharedOrMissing)
{
    const Chain chain(3);
    chain.desc(0)[kBufferPointer] = chain.desc(2)[kBufferPointer] = kBuffer;
    chain.desc(1)[kBufferPointer] = chain.desc(2)[kOriginalPointer] = 0;
    ASSERT_NE(Osal_qmssConvertDescPhyToVirt(0, pointer(chain.phys(0))), nullptr);
    EXPECT_EQ(chain.desc(0)[kBufferPointer], virtual_of(kBuffer));
    EXPECT_EQ(chain.desc(2)[kBufferPointer], virtual_of(kBuffer));
    EXPECT_EQ(chain.desc(1)[kBufferPointer], 0u);
    EXPECT_EQ(chain.desc(2)[kOriginalPointer], 0u);
}

// Each pointer of the middle descriptor in turn is invalid. Earlier pointers are converted and stay so.
TEST_F(Descriptor, StopsAtAnInvalidPointerAndKeepsItsConversions)
{
    constexpr uint32_t kNowhere = 0x50;
    const struct {
        int word;
        std::string text;
        bool buffer_done, original_done;
    } cases[] = {{kBufferPointer, "invalid descriptor buffer pointer ", false, false},
                 {kOriginalPointer, "invalid descriptor original buffer pointer ", true, false},
                 {kLink, "invalid descriptor link pointer ", true, true}};
    for (const auto &[word, text, buffer_done, original_done] : cases) {
        SCOPED_TRACE(text);
        for (const bool to_virtual : {true, false}) {
            const Chain chain(3);
            if (!to_virtual)
                Osal_qmssConvertDescPhyToVirt(0, pointer(chain.phys(0)));
            uint32_t *const middle = chain.desc(1);
            middle[word] = kNowhere;
            const std::string line =
                (to_virtual ? kToVirtual : kToPhysical) + text + hex(address(middle)) + "->" + hex(kNowhere);
            if (to_virtual)
                expect_failure(Osal_qmssConvertDescPhyToVirt, pointer(chain.phys(0)), line);
            else
                expect_failure(Osal_qmssConvertDescVirtToPhy, chain.desc(0), line);
            const auto done = [&](int at) {
                return (middle[at] == kBuffer + 64) == !to_virtual && middle[at] != kNowhere;
            };
            EXPECT_TRUE(to_virtual ? chain.is_virtual(0) : chain.is_physical(0));
            EXPECT_TRUE(to_virtual ? chain.is_physical(2) : chain.is_virtual(2));
            EXPECT_EQ(done(kBufferPointer), buffer_done);
            EXPECT_EQ(done(kOriginalPointer), original_done);
            EXPECT_EQ(middle[word], kNowhere);
        }
    }
}

TEST_F(Descriptor, RefusesHandlesAndLinksThatLeadOutOfTheMemory)
{
    EXPECT_EQ(Osal_qmssConvertDescPhyToVirt(0, nullptr), nullptr);
    EXPECT_EQ(Osal_qmssConvertDescVirtToPhy(0, nullptr), nullptr);
    const auto line = [](const std::string &caller, uint32_t handle) {
        return caller + "invalid descriptor address " + hex(handle);
    };
    expect_failure(Osal_qmssConvertDescPhyToVirt, pointer(0x51), line(kToVirtual, 0x51));
    expect_failure(Osal_qmssConvertDescVirtToPhy, pointer(0x51), line(kToPhysical, 0x51));
    // A host descriptor that begins in the memory but does not end there.
    const uint32_t end = kDdr + kDdrSize - 16;
    virt(end)[kInfo] = 0;
    expect_failure(Osal_qmssConvertDescPhyToVirt, pointer(end | 1), line(kToVirtual, end | 1));
    const Chain chain(1);
    chain.desc(0)[kLink] = end;
    expect_failure(Osal_qmssConvertDescPhyToVirt, pointer(chain.phys(0)),
                   kToVirtual + "invalid descriptor link pointer " + hex(address(chain.desc(0))) + "->" + hex(end));
    if (sizeof(void *) > 4) {
        auto *const high = reinterpret_cast<void *>(uintptr_t{kDdr} + (uintptr_t{1} << 16 << 16));
        LogWatch log;
        EXPECT_EQ(Osal_qmssConvertDescPhyToVirt(0, high), nullptr);
        EXPECT_EQ(Osal_qmssPhyToVirt(high), nullptr);
        EXPECT_EQ(log.take(), (Lines{kToVirtual + "invalid descriptor address 0x1a0000000",
                                     "3 Osal_qmssPhyToVirt(): invalid physical address 0x1a0000000"}));
    }
}

TEST_F(Descriptor, EndsALoop)
{
    const Chain chain(3);
    for (uint32_t i = 0; i < 3; ++i)
        chain.desc(i)[kBufferPointer] = chain.desc(i)[kOriginalPointer] = 0;
    chain.desc(2)[kLink] = chain.phys(0);
    LogWatch log;
    EXPECT_EQ(Osal_qmssConvertDescPhyToVirt(0, pointer(chain.phys(0))), nullptr);
    EXPECT_EQ(log.take(), Lines{kToVirtual + "invalid descriptor link pointer " + hex(address(chain.desc(0))) + "->" +
                                hex(address(chain.desc(1)))});
}

TEST_F(Descriptor, ConvertsSingleAddresses)
{
    const uint32_t last = kMsm + kMsmSize - 1;
    EXPECT_EQ(Osal_qmssPhyToVirt(nullptr), nullptr);
    EXPECT_EQ(Osal_qmssVirtToPhy(nullptr), nullptr);
    EXPECT_EQ(Osal_saGetSCPhyAddr(nullptr), nullptr);
    EXPECT_EQ(address(Osal_qmssVirtToPhy(virt(last))), last);
    EXPECT_EQ(address(Osal_saGetSCPhyAddr(virt(last))), last);
    LogWatch log;
    EXPECT_EQ(Osal_qmssPhyToVirt(pointer(last + 1)), nullptr);
    EXPECT_EQ(Osal_qmssVirtToPhy(pointer(0x10)), nullptr);
    EXPECT_EQ(Osal_saGetSCPhyAddr(pointer(0x10)), nullptr);
    EXPECT_EQ(log.take(), (Lines{"3 Osal_qmssPhyToVirt(): invalid physical address " + hex(last + 1),
                                 "3 Osal_qmssVirtToPhy(): invalid virtual address 0x10",
                                 "3 Osal_saGetSCPhyAddr(): invalid virtual address 0x10"}));
    EXPECT_EQ(Osal_qmssMemBarrier(0, pointer(0x123)), pointer(0x123));
}

} // namespace
