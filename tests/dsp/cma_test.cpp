// DMA memory. A process sets it up only once, so faults of the set-up are tried in children.
#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>

#include <ddal/cma.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/resources.h"

using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;

const std::string kList = "/proc/cma";
const std::string kSetup = "3 process_init_once: ";
#ifdef MAP_32BIT
constexpr int kLow = MAP_32BIT;
#else
constexpr int kLow = 0;
#endif
constexpr uint32_t kMsm = 0x0C000000, kMsmSize = 0x00600000, kDdr = 0xA0000000, kDdrSize = 0x04000000;

size_t mapped_regions()
{
    const std::string maps = file_content("/proc/self/maps");
    size_t count = 0;
    for (size_t at = 0; (at = maps.find("!cma\n", at)) != std::string::npos; ++at)
        ++count;
    return count;
}

// Returns, from a fresh process: the results of two set-up calls, the new descriptors and regions, whether `inside`
// became valid, and the log lines.
Lines setup_in_child(int (*setup)() = ddal_cma_process_init, uint32_t inside = kMsm)
{
    return in_child([setup, inside] {
        LogWatch log;
        const size_t before = open_descriptors().size();
        const int first = setup();
        Lines lines{std::to_string(first) + " " + std::to_string(ddal_cma_process_init()) + " " +
                    std::to_string(open_descriptors().size() - before) + " " + std::to_string(mapped_regions())};
        uint32_t address = 1;
        const int converted = ddal_cma_phy_to_virt(inside, &address);
        lines.push_back(std::to_string(converted) + " " + std::to_string(address != 0));
        for (const std::string &line : log.take())
            if (!line.starts_with("3 ddal_cma_phy_to_virt"))
                lines.push_back(line);
        return lines;
    });
}

TEST(CmaSetup, RunsOnceAndKeepsItsResult)
{
    EXPECT_EQ(setup_in_child(), (Lines{"0 0 1 2", "0 1"})); // the device stays open
    EXPECT_EQ(setup_in_child(ddal_cma_init_once), (Lines{"0 0 1 2", "0 1"}));
    EXPECT_THAT(ctl("cma show"), testing::HasSubstr("initialised 1 pmu 0"));
    const struct {
        std::string fault;
        std::string head;
        Lines lines;
    } cases[] = {
        {"open:/dev/cma errno=EACCES", "-13 -13 0 0", {kSetup + "Unable to open CMA device, Permission denied"}},
        {"fopen:/proc/cma errno=EMFILE", "-24 -24 0 0", {kSetup + "Unable to open /proc/cma, Too many open files"}},
        {"mmap:/dev/cma errno=ENOMEM",
         "-12 -12 0 0",
         {kSetup + "Unable to mmap DMA address 0c000000 +600000, Cannot allocate memory"}},
        {"mmap:/dev/cma nth=2 errno=EAGAIN",
         "-11 -11 0 0",
         {kSetup + "Unable to mmap DMA address a0000000 +4000000, Resource temporarily unavailable"}},
    };
    for (const auto &[rule, head, lines] : cases) {
        const Fault fault(rule);
        Lines expected{head, "-14 0"}; // no address is valid
        expected.insert(expected.end(), lines.begin(), lines.end());
        EXPECT_EQ(setup_in_child(), expected) << rule;
        EXPECT_EQ(fault.fired(), 1u);
    }
    const Fault fault("ioctl:/dev/cma errno=EPERM");
    EXPECT_EQ(
        setup_in_child(ddal_cma_init_once),
        (Lines{"-1 0 1 2", "0 1", "3 ddal_cma_init_once: Unable to initialize CMA device, Operation not permitted"}));
}

TEST(CmaSetup, TakesAtMostTwoRegionsFromTheDriversList)
{
    const std::string header = "physical name size state\n", msm = "0c000000 MSM 00600000 -\n";
    const std::string too_wide = kSetup + "Unable to mmap DMA address ",
                      why = ", Value too large for defined data type";
    const struct {
        std::string list;
        Lines expected;
        uint32_t inside = kMsm;
    } cases[] = {
        {"", {"-5 -5 0 0", "-14 0", kSetup + "Unable to parse /proc/cma"}},
        {header, {"0 0 1 0", "-14 0"}},
        {header + msm, {"0 0 1 1", "0 1"}},
        {header + "  0c000000   x  0x600000  y\n\n a0000000 x 4000000 y", {"0 0 1 2", "0 1"}},
        {header + msm + "a0000000 DDR 1000 -\na1000000 DDR 1000 -\n",
         {"-1001 -1001 0 0", "-14 0", kSetup + "More than 2 entries in /proc/cma"}},
        {header + "0c000000 MSM 00000000 -\n",
         {"-22 -22 0 0", "-14 0", kSetup + "Unable to mmap DMA address 0c000000 +0, Invalid argument"}},
        {header + "fffff000 X 1000 -\n", {"0 0 1 1", "0 1"}, 0xFFFFFFFF}, // ends at the last address
        // A region that does not fit 32 bits is refused.
        {header + "fffff000 X 2000 -\n", {"-75 -75 0 0", "-14 0", too_wide + "fffff000 +2000" + why}},
        {header + "800000000 X 1000 -\n", {"-75 -75 0 0", "-14 0", too_wide + "00000000 +1000" + why}},
        {header + "0 X 100000000 -\n", {"-75 -75 0 0", "-14 0", too_wide + "00000000 +0" + why}},
        {header + "none at all\n", {"0 0 1 0", "-14 0"}},
    };
    for (const auto &[list, expected, inside] : cases) {
        const KeptFile kept(kList);
        put_file(kList, list);
        EXPECT_EQ(setup_in_child(ddal_cma_process_init, inside), expected) << list;
    }
}

// Both regions hold 0x0c001000; the one of the second line is mapped at another address.
TEST(CmaSetup, LooksInTheRegionOfTheSecondLineFirst)
{
    const KeptFile kept(kList);
    put_file(kList, "header\n0c000000 X 2000 -\n0c001000 X 1000 -\n");
    EXPECT_EQ(in_child([] {
                  uint32_t first = 0, both = 0;
                  ddal_cma_process_init();
                  return Lines{std::to_string(ddal_cma_phy_to_virt(kMsm, &first)),
                               std::to_string(ddal_cma_phy_to_virt(kMsm + 0x1000, &both)),
                               both == first + 0x1000 ? "the first" : "the second"};
              }),
              (Lines{"0", "0", "the second"}));
}

TEST(CmaSetup, MustComeBeforeTheRequests)
{
    EXPECT_EQ(outcome_in_child([] {
                  uint32_t address;
                  return ddal_cma_alloc(DDAL_CMA_DDR, 16, &address);
              }),
              (Lines{"-9", "3 ddal_cma_alloc: Unable to allocate DDR of size 0x10, Bad file descriptor"}));
}

// A word that one process writes is visible to another at the same physical address, whatever the mappings.
TEST(CmaSetup, SharesTheMemoryBetweenProcesses)
{
    const auto word = [](uint32_t phys) {
        uint32_t address = 0;
        return ddal_cma_phy_to_virt(phys, &address) == 0 ? reinterpret_cast<volatile uint32_t *>(uintptr_t{address})
                                                         : nullptr;
    };
    const Lines made = in_child([&] {
        uint32_t address = 0, phys = 0;
        if (ddal_cma_process_init() == 0 && ddal_cma_alloc(DDAL_CMA_MSM, 4096, &address) == 0 &&
            ddal_cma_virt_to_phy(address, &phys) == 0)
            *word(phys) = 0x12345678;
        return Lines{std::to_string(phys)};
    });
    const auto phys = static_cast<uint32_t>(std::stoul(made.at(0)));
    const Lines found = in_child([&] {
        // Another mapping of this process occupies the place where the other process had the region.
        mmap(nullptr, 1 << 20, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | kLow, -1, 0);
        ddal_cma_process_init();
        return Lines{std::to_string(*word(phys))};
    });
    EXPECT_EQ(found, Lines{std::to_string(0x12345678)});
    ctl("cma reset");
}

class Cma : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ddal_cma_process_init(), 0); }
    void TearDown() override { ctl("cma reset"); }
};

TEST_F(Cma, ConvertsOnlyTheBytesOfARegion)
{
    for (const auto &[phys, size] : {std::pair{kMsm, kMsmSize}, {kDdr, kDdrSize}}) {
        uint32_t first = 0, last = 0, back = 0;
        EXPECT_EQ(ddal_cma_phy_to_virt(phys, &first), 0);
        EXPECT_EQ(ddal_cma_phy_to_virt(phys + size - 1, &last), 0);
        EXPECT_EQ(last - first, size - 1);
        EXPECT_EQ(ddal_cma_virt_to_phy(last, &back), 0);
        EXPECT_EQ(back, phys + size - 1);
        for (const uint32_t outside : {phys - 1, phys + size}) {
            char line[64];
            snprintf(line, sizeof line, "3 ddal_cma_phy_to_virt: Invalid DMA addr 0x%x", outside);
            uint32_t output = 7;
            LogWatch log;
            EXPECT_EQ(ddal_cma_phy_to_virt(outside, &output), -EFAULT);
            EXPECT_EQ(output, 0u);
            EXPECT_EQ(log.take(), Lines{line});
        }
    }
    uint32_t output = 7;
    LogWatch log;
    EXPECT_EQ(ddal_cma_virt_to_phy(0x1000, &output), -EFAULT);
    EXPECT_EQ(output, 0u);
    EXPECT_EQ(ddal_cma_phy_to_virt(kMsm, nullptr), -EINVAL);
    EXPECT_EQ(ddal_cma_virt_to_phy(kMsm, nullptr), -EINVAL);
    EXPECT_EQ(log.take(), (Lines{"3 ddal_cma_virt_to_phy: Invalid virtual addr 0x1000",
                                 "3 ddal_cma_phy_to_virt: Invalid argument virt_addr (NULL)",
                                 "3 ddal_cma_virt_to_phy: Invalid argument dma_addr (NULL)"}));
}

TEST_F(Cma, AllocatesUntilTheMemoryIsUsedUp)
{
    uint32_t first = 0, second = 0, phys = 0, next = 0;
    ASSERT_EQ(ddal_cma_alloc(DDAL_CMA_DDR, 5000, &first), 0);
    ASSERT_EQ(ddal_cma_alloc(DDAL_CMA_DDR, 1, &second), 0);
    EXPECT_EQ(ddal_cma_virt_to_phy(first, &phys), 0);
    EXPECT_EQ(ddal_cma_virt_to_phy(second, &next), 0);
    EXPECT_EQ(phys % 4096, 0u);
    EXPECT_GE(next, phys + 5000);
    EXPECT_EQ(next % 4096, 0u);

    LogWatch log;
    uint32_t untouched = 7;
    EXPECT_EQ(ddal_cma_alloc(DDAL_CMA_MSM, kMsmSize + 1, &untouched), -ENOMEM);
    EXPECT_EQ(untouched, 7u);
    EXPECT_EQ(ddal_cma_alloc(DDAL_CMA_MSM, kMsmSize, &first), 0);
    EXPECT_EQ(ddal_cma_alloc(DDAL_CMA_MSM, 1, &second), -ENOMEM);
    EXPECT_EQ(ddal_cma_alloc(DDAL_CMA_DDR, 1, &second), 0);
    EXPECT_EQ(ddal_cma_alloc(3, 0, nullptr), -EINVAL);
    EXPECT_EQ(ddal_cma_alloc(3, 0, &first), -EINVAL);
    EXPECT_EQ(ddal_cma_alloc(3, 4096, &first), -EINVAL);
    EXPECT_EQ(ddal_cma_alloc(0, 4096, &first), -EINVAL);
    const std::string alloc = "3 ddal_cma_alloc: ";
    EXPECT_EQ(log.take(), (Lines{alloc + "Unable to allocate MSM of size 0x600001, Cannot allocate memory",
                                 alloc + "Unable to allocate MSM of size 0x1, Cannot allocate memory",
                                 alloc + "Invalid argument virt_addr (NULL)", alloc + "Invalid argument size (0)",
                                 alloc + "Invalid argument mem_type (3)", alloc + "Invalid argument mem_type (0)"}));
}

TEST_F(Cma, RefusesAnAnswerOutsideEveryRegion)
{
    const KeptFile kept(kList);
    put_file(kList, "header\n10000000 DDR 1000 -\n"); // the driver's list changes while the process runs
    LogWatch log;
    uint32_t address = 7;
    EXPECT_EQ(ddal_cma_alloc(DDAL_CMA_DDR, 16, &address), -EFAULT);
    EXPECT_EQ(address, 0u);
    const Lines lines = log.take();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "3 ddal_cma_phy_to_virt: Invalid DMA addr 0x10000000");
    EXPECT_EQ(lines[1], "3 ddal_cma_alloc: ddal_cma_phy_to_virt returned failure -14 for addr 0x10000000");
}

TEST_F(Cma, RepeatsInterruptedRequests)
{
    const Fault fault("ioctl:/dev/cma count=2 errno=EINTR");
    uint32_t address = 0;
    EXPECT_EQ(ddal_cma_alloc(DDAL_CMA_DDR, 16, &address), 0);
    EXPECT_EQ(ddal_cma_enable_user_pmu(), 0);
    EXPECT_EQ(fault.seen(), 4u);
    EXPECT_THAT(ctl("cma show"), testing::HasSubstr("pmu 1"));
    const Fault refused("ioctl:/dev/cma errno=EPERM");
    LogWatch log;
    EXPECT_EQ(ddal_cma_enable_user_pmu(), -EPERM);
    EXPECT_EQ(log.take(), Lines{"3 ddal_cma_enable_user_pmu: Unable to enable user access to PMU"});
}

} // namespace
