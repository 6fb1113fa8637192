#include <cerrno>

#include <ddal/fpga.h>
#include <gtest/gtest.h>

#include "support/board.h"
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
