#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <future>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

#include <ddal/dfe.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

uint8_t block[40], ones[40];

TEST(Dfe, ChecksChipAndLengthInOrder)
{
    const Fault opened("open:/dev/dfe errno=EIO count=0");
    const std::string text = "FWQA supports only DDAL_DFE_CHIP_ID0";
    LogWatch log;
    EXPECT_EQ(ddal_dfe_read(1, 0, block, 0), -ENODEV);
    EXPECT_EQ(ddal_dfe_write(1, 0, block, 0), 0);
    EXPECT_EQ(ddal_dfe_read(-1, 0, block, 1), -ENODEV);
    EXPECT_EQ(ddal_dfe_write(1, 0, block, 1), -ENODEV);
    EXPECT_EQ(ddal_dfe_read(0, 0, block, 0), 0);
    EXPECT_EQ(ddal_dfe_masked_write(2, 0x1f, block, ones, 0), -ENODEV);
    EXPECT_EQ(ddal_dfe_masked_write(0, 0, block, ones, 0), 0);
    EXPECT_EQ(opened.seen(), 0u);
    EXPECT_EQ(log.take(),
              (std::vector<std::string>{"3 ddal_dfe_read: " + text, "3 ddal_dfe_read: " + text,
                                        "3 ddal_dfe_write: " + text, "3 ddal_dfe_read: " + text,
                                        "3 ddal_dfe_masked_write: Failure during reading current value of 1f"}));
    EXPECT_EQ(ddal_dfe_masked_write(0, 0, block, ones, SIZE_MAX), -ENOMEM);
}

// Lengths around the 16 bytes that are merged at once.
TEST(DfeMaskedWrite, ChangesTheMaskedBitsOfEveryByte)
{
    for (const size_t len : {1u, 15u, 16u, 17u, 31u, 32u, 40u}) {
        std::vector<uint8_t> old(len + 1), value(len), mask(len), seen(len + 1), expected(len + 1);
        for (size_t i = 0; i <= len; ++i)
            expected[i] = old[i] = static_cast<uint8_t>(i * 29 + 3);
        for (size_t i = 0; i < len; ++i) {
            value[i] = static_cast<uint8_t>(i * 53 + 101);
            mask[i] = static_cast<uint8_t>(i * 91 + 7);
            expected[i] = static_cast<uint8_t>(old[i] ^ ((old[i] ^ value[i]) & mask[i]));
        }
        ASSERT_EQ(ddal_dfe_write(0, 0x1003, old.data(), old.size()), 0);
        EXPECT_EQ(ddal_dfe_masked_write(0, 0x1003, value.data(), mask.data(), len), 0);
        EXPECT_EQ(ddal_dfe_read(0, 0x1003, seen.data(), seen.size()), 0);
        EXPECT_EQ(seen, expected) << len;
    }
}

TEST(Dfe, WaitsForTheLock)
{
    const int fd = open("/dev/dfe", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    auto write = std::async(std::launch::async, [] { return ddal_dfe_write(0, 0, block, 1); });
    EXPECT_EQ(write.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    close(fd);
    EXPECT_EQ(write.get(), 0);
}

TEST(Dfe, SurvivesEveryFailure)
{
    const std::string read = "3 ddal_dfe_read: ", write = "3 ddal_dfe_write: ", masked = "3 ddal_dfe_masked_write: ";
    const std::string no_device = "can't open device dfe: %m", length = "dfe driver returned unexpected len on ";
    Sweep("ddal_dfe_read", [] { return ddal_dfe_read(0, 0x100, block, sizeof block); })
        .when("open", fails_with_errno(read + no_device))
        .when("flock/ENOLCK", in_turn({fails_with_errno_or(0, {}), changes_nothing()}))
        .when("pread/EIO", fails_with_errno(read + "dfe read failed: %m"))
        .when("pread/end", fails(-1001, {read + length + "dfe_read: 0"}))
        .run();
    Sweep("ddal_dfe_write", [] { return ddal_dfe_write(0, 0x100, block, sizeof block); })
        .when("open", fails_with_errno(write + no_device))
        .when("flock/ENOLCK", in_turn({fails_with_errno_or(0, {}), changes_nothing()}))
        .when("pwrite/EIO", fails_with_errno(write + "dfe write failed: %m"))
        .when("pwrite/end", fails(-1001, {write + length + "dfe_write: 0"}))
        .run();

    const std::string no_read = masked + "Failure during reading current value of 100";
    const std::string no_write = masked + "Failure during writing new value to 100";
    const auto no_read_device = fails_with_errno_or(0, {read + no_device, no_read});
    const auto no_write_device = fails_with_errno_or(0, {write + no_device, no_write});
    Sweep("ddal_dfe_masked_write", [] { return ddal_dfe_masked_write(0, 0x100, block, ones, sizeof block); })
        .when("open", in_turn({no_read_device, no_read_device, no_write_device}))
        .when("flock/ENOLCK", in_turn({fails_with_errno_or(0, {no_read}), changes_nothing(),
                                       fails_with_errno_or(0, {no_write}), changes_nothing()}))
        .when("pread/EIO", fails_with_errno_or(0, {read + "dfe read failed: %m", no_read}))
        .when("pread/end", fails(-1001, {read + length + "dfe_read: 0", no_read}))
        .when("pwrite/EIO", fails_with_errno_or(0, {write + "dfe write failed: %m", no_write}))
        .when("pwrite/end", fails(-1001, {write + length + "dfe_write: 0", no_write}))
        .run();
}

} // namespace
