#include <cerrno>
#include <vector>

#include <ddal/fpga.h>
#include <ddal/rp3.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

TEST(FpgaRead, ReturnsTheRegisterAndOne)
{
    ctl("fpga set 0x140900 0xcafe0001");
    uint32_t value = 0;
    EXPECT_EQ(ddal_fpga_read(0x140900, &value), 1);
    EXPECT_EQ(value, 0xcafe0001u);
}

TEST(FpgaRead, ChecksItsArgumentsBeforeItOpensTheDevice)
{
    const Fault opened("open:/dev/fpga_usr errno=EIO count=0");
    LogWatch log;
    uint32_t value = 0;
    EXPECT_EQ(ddal_fpga_read(2, nullptr), -EINVAL);
    EXPECT_EQ(ddal_fpga_read(2, &value), -EFAULT);
    EXPECT_EQ(opened.seen(), 0u);
    EXPECT_EQ(log.take(), (std::vector<std::string>{"3 ddal_fpga_read: fpga read buffer is NULL",
                                                    "3 ddal_fpga_read: fpga reg address is not aligned"}));
}

TEST(FpgaRead, SurvivesEveryFailure)
{
    Sweep("ddal_fpga_read",
          [] {
              uint32_t value = 0;
              return ddal_fpga_read(0x140900, &value);
          })
        .succeeds(1)
        .when("open", fails_with_errno("3 ddal_fpga_read: can't open device fpga_usr: %m"))
        .when("pread/end", fails(-1001, {"3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read"}))
        .when("pread/EIO", fails_with_errno("3 ddal_fpga_read: fpga read failed: %m"))
        .run();
}

TEST(FpgaWrite, ChangesTheRegisterAndReturnsOne)
{
    EXPECT_EQ(ddal_fpga_write(0x140104, 0x89abcdef), 1);
    EXPECT_EQ(ctl("fpga get 0x140104"), "0x89abcdef\n");
    EXPECT_EQ(ddal_fpga_masked_write(0x140104, 0x00ff00f0, 0x12345678), 0);
    EXPECT_EQ(ctl("fpga get 0x140104"), "0x8934cd7f\n");

    uint32_t version = 0;
    ctl("fpga set 0 0x17010203");
    EXPECT_EQ(ddal_fpga_get_version(&version), 1);
    EXPECT_EQ(version, 0x17010203u);
    EXPECT_EQ(ddal_fpga_wait_datapath_alarm(), -1001);
}

TEST(FpgaWrite, RefusesAMisalignedAddressBeforeItOpensTheDevice)
{
    const Fault opened("open:/dev/fpga_usr errno=EIO count=0");
    LogWatch log;
    EXPECT_EQ(ddal_fpga_write(1, 0), -EFAULT);
    EXPECT_EQ(ddal_fpga_masked_write(0x140102, 1, 1), -EFAULT);
    EXPECT_EQ(opened.seen(), 0u);
    EXPECT_EQ(log.take(), (std::vector<std::string>{"3 ddal_fpga_write: fpga reg address is not aligned",
                                                    "3 ddal_fpga_masked_write: fpga reg address is not aligned"}));
}

TEST(FpgaWrite, SurvivesEveryFailure)
{
    Sweep("ddal_fpga_write", [] { return ddal_fpga_write(0x140900, 1); })
        .succeeds(1)
        .when("open", fails_with_errno("3 ddal_fpga_write: can't open device fpga_usr: %m"))
        .when("pwrite/end", fails(-1001, {"3 ddal_fpga_write: fpga driver returned unexpected len on fpga_usr_write"}))
        .when("pwrite/EIO", fails_with_errno("3 ddal_fpga_write: fpga write failed: %m"))
        .run();
    Sweep("ddal_fpga_masked_write", [] { return ddal_fpga_masked_write(0x140900, 1, 1); })
        .when("open", fails_with_errno("3 ddal_fpga_masked_write: can't open device fpga_usr: %m"))
        .when("ioctl", fails_with_errno("3 ddal_fpga_masked_write: ioctl failed: %m"))
        .run();
}

TEST(FpgaMaskedWrite, LosesNoBitBetweenProcesses)
{
    constexpr uint32_t kRegister = 0x140908, kProcesses = 8, kRounds = 2000, kBits = 4;
    ASSERT_EQ(ddal_fpga_write(kRegister, 0), 1);
    std::vector<pid_t> children;
    for (uint32_t i = 0; i < kProcesses; ++i)
        children.push_back(start_child([i] {
            for (uint32_t round = 1, value = 0; round <= kRounds; ++round)
                if (ddal_fpga_masked_write(kRegister, 0xFu << i * kBits, round << i * kBits) != 0 ||
                    ddal_fpga_read(kRegister, &value) != 1 || (value >> i * kBits & 0xF) != (round & 0xF))
                    return 1;
            return 0;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(wait_for_child(child), 0) << "a process lost its bits";
    EXPECT_EQ(ctl("fpga get 0x140908"), "0x00000000\n"); // 2000 ends in four zero bits
}

TEST(Rp3AlarmMask, IsARegisterWithOtherResults)
{
    LogWatch log;
    uint32_t mask = 0;
    EXPECT_EQ(ddal_set_rp3_alarm_mask(0xa5), 0);
    EXPECT_EQ(ctl("fpga get 0x140020"), "0x000000a5\n");
    EXPECT_EQ(ddal_get_rp3_alarm_mask(&mask), 0);
    EXPECT_EQ(mask, 0xa5u);
    EXPECT_EQ(ddal_get_rp3_alarm_mask(nullptr), -1001);
    EXPECT_TRUE(log.take().empty());
}

TEST(Rp3AlarmMask, HasOneCodeForEveryFailure)
{
    Sweep("ddal_set_rp3_alarm_mask", [] { return ddal_set_rp3_alarm_mask(0); })
        .when("open", fails(-1001, {"3 ddal_fpga_write: can't open device fpga_usr: %m"}))
        .when("pwrite/end", fails(-1001, {"3 ddal_fpga_write: fpga driver returned unexpected len on fpga_usr_write"}))
        .when("pwrite/EIO", fails(-1001, {"3 ddal_fpga_write: fpga write failed: %m"}))
        .run();
    Sweep("ddal_get_rp3_alarm_mask",
          [] {
              uint32_t mask;
              return ddal_get_rp3_alarm_mask(&mask);
          })
        .when("open", fails(-1001, {"3 ddal_fpga_read: can't open device fpga_usr: %m"}))
        .when("pread/end", fails(-1001, {"3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read"}))
        .when("pread/EIO", fails(-1001, {"3 ddal_fpga_read: fpga read failed: %m"}))
        .run();
}
