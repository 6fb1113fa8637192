// Registers of the FPGA, the CPLD and the digital front end, through character devices of the kernel.
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include <ddal/cpld.h>
#include <ddal/dfe.h>
#include <ddal/fpga.h>
#include <ddal/rp3.h>

using namespace std::chrono_literals;

namespace {

constexpr uint32_t kScratch = 0x140900;
constexpr uint32_t kNoRegister = 0x200000;
constexpr uint32_t kDoneReading = 1;

uint32_t fpga(uint32_t address)
{
    uint32_t value = 0;
    EXPECT_EQ(ddal_fpga_read(address, &value), int{kDoneReading}) << std::hex << address;
    return value;
}

TEST(Fpga, RegistersKeepWrittenValues)
{
    uint32_t version = 0;
    EXPECT_EQ(ddal_fpga_get_version(&version), 1);
    EXPECT_EQ(version, 0x20260401u);

    // The last two need more than 31 bits of file offset.
    constexpr std::array<uint32_t, 5> addresses{0x10, kScratch, 0x1FFFFC, 0xF0000010, 0xF01FFFFC};
    for (size_t i = 0; i < addresses.size(); i++)
        EXPECT_EQ(ddal_fpga_write(addresses[i], 0x80000001u + static_cast<uint32_t>(i)), 1);
    for (size_t i = 0; i < addresses.size(); i++)
        EXPECT_EQ(fpga(addresses[i]), 0x80000001u + i) << std::hex << addresses[i];

    EXPECT_EQ(ddal_set_rp3_alarm_mask(0xCAFE), 0);
    EXPECT_EQ(fpga(0x140020), 0xCAFEu);
}

TEST(Fpga, MaskedWritesChangeTheirBitsAtomically)
{
    ASSERT_EQ(ddal_fpga_write(kScratch, 0xFFFF0000), 1);
    EXPECT_EQ(ddal_fpga_masked_write(kScratch, 0x00FFFF00, 0x12345678), 0);
    EXPECT_EQ(fpga(kScratch), 0xFF345600u);

    std::atomic<int> lost{0};
    const auto count_in = [&](unsigned shift) {
        for (uint32_t i = 1; i <= 1000; i++) {
            uint32_t value = 0;
            if (ddal_fpga_masked_write(kScratch, 0xFFFFu << shift, i << shift) != 0 ||
                ddal_fpga_read(kScratch, &value) != 1 || (value >> shift & 0xFFFF) != i)
                lost++;
        }
    };
    std::thread upper(count_in, 16);
    count_in(0);
    upper.join();
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(fpga(kScratch), 1000u << 16 | 1000u);
}

TEST(Fpga, ReportsAMissingRegister)
{
    uint32_t value = 7;
    EXPECT_EQ(ddal_fpga_read(kNoRegister, &value), -ENXIO);
    EXPECT_EQ(ddal_fpga_read(0xF0200000, &value), -ENXIO);
    EXPECT_EQ(ddal_fpga_write(kNoRegister, 0), -ENXIO);
    EXPECT_EQ(ddal_fpga_masked_write(kNoRegister, 1, 1), -ENXIO);
    EXPECT_EQ(ddal_fpga_read(kScratch + 2, &value), -EFAULT);
    EXPECT_EQ(value, 7u);
}

TEST(Cpld, RegistersAreBytes)
{
    uint8_t value = 0;
    EXPECT_EQ(ddal_cpld_write(0x10, 0xA5), 0);
    EXPECT_EQ(ddal_cpld_write(0x14, 0xFF), 0);
    EXPECT_EQ(ddal_cpld_read(0x10, &value), 0);
    EXPECT_EQ(value, 0xA5);
    EXPECT_EQ(ddal_cpld_write(0x10, 0x100), -EINVAL);
    EXPECT_EQ(ddal_cpld_read(0x400, &value), -ENXIO);
    EXPECT_EQ(ddal_cpld_write(0x400, 0), -ENXIO);
}

TEST(Dfe, MovesBlocksUnderALock)
{
    std::array<uint8_t, 37> block, mask, found{};
    block.fill(0x5A);
    mask.fill(0x0F);
    ASSERT_EQ(ddal_dfe_write(DDAL_DFE_CHIP_ID0, 5, block.data(), block.size()), 0);
    block.fill(0xFF);
    EXPECT_EQ(ddal_dfe_masked_write(DDAL_DFE_CHIP_ID0, 5, block.data(), mask.data(), block.size()), 0);
    EXPECT_EQ(ddal_dfe_read(DDAL_DFE_CHIP_ID0, 5, found.data(), found.size()), 0);
    for (const uint8_t byte : found)
        EXPECT_EQ(byte, 0x5F);
    EXPECT_EQ(ddal_dfe_read(DDAL_DFE_CHIP_ID0, 0x1000 - 4, found.data(), 8), -ENXIO);

    // Another user holds the lock, so the call waits.
    const int other = open("/dev/dfe", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        EXPECT_EQ(ddal_dfe_read(DDAL_DFE_CHIP_ID0, 5, found.data(), 1), 0);
        done = true;
    });
    std::this_thread::sleep_for(200ms);
    EXPECT_FALSE(done);
    close(other);
    reader.join();
}

} // namespace
