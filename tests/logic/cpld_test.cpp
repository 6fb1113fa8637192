#include <cerrno>

#include <ddal/cpld.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

TEST(Cpld, ReadsAndWritesByteRegisters)
{
    uint8_t value = 0;
    EXPECT_EQ(ddal_cpld_write(0x200, 0xff), 0);
    EXPECT_EQ(ctl("cpld get 0x200"), "0xff\n");
    ctl("cpld set 0x204 0x81");
    EXPECT_EQ(ddal_cpld_read(0x204, &value), 0);
    EXPECT_EQ(value, 0x81);
}

TEST(Cpld, ChecksAlignmentBeforeRangeAndBothBeforeItOpensTheDevice)
{
    const Fault opened("open:/dev/cpld-usr errno=EIO count=0");
    LogWatch log;
    uint8_t value;
    EXPECT_EQ(ddal_cpld_read(0x12, &value), -EINVAL);
    EXPECT_EQ(ddal_cpld_write(0x11, 0x100), -EINVAL);
    EXPECT_EQ(ddal_cpld_write(0x10, 0x100), -EINVAL);
    EXPECT_EQ(opened.seen(), 0u);
    EXPECT_EQ(log.take(), (std::vector<std::string>{"3 ddal_cpld_read: invalid CPLD address alignment: 0x12",
                                                    "3 ddal_cpld_write: invalid CPLD address alignment: 0x11",
                                                    "3 ddal_cpld_write: CPLD register 0x10 out of range: 0x100"}));
}

TEST(Cpld, SurvivesEveryFailure)
{
    Sweep("ddal_cpld_read",
          [] {
              uint8_t value;
              return ddal_cpld_read(0x200, &value);
          })
        .when("open", fails_with_errno("3 ddal_cpld_read: can't open device cpld: %m"))
        .when("pread/end", fails(-EFAULT, {"3 ddal_cpld_read: pread failed: Success"}))
        .when("pread/EIO", fails_with_errno("3 ddal_cpld_read: pread failed: %m"))
        .run();
    Sweep("ddal_cpld_write", [] { return ddal_cpld_write(0x200, 1); })
        .when("open", fails_with_errno("3 ddal_cpld_write: can't open device cpld: %m"))
        .when("pwrite/end", fails(-EFAULT, {"3 ddal_cpld_write: pwrite failed: Success"}))
        .when("pwrite/EIO", fails_with_errno("3 ddal_cpld_write: pwrite failed: %m"))
        .run();
}

// An interrupted and continued transfer leaves an errno behind, which must not be reported for the later end of file.
TEST(Cpld, DoesNotReportAnInterruptionBeforeTheEnd)
{
    const Fault interrupted("pread:/dev/cpld-usr nth=1 errno=EINTR"), end("pread:/dev/cpld-usr short=0");
    uint8_t value;
    EXPECT_EQ(ddal_cpld_read(0x200, &value), -EFAULT);
}
