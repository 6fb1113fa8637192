// The length limit of a line's path, which real attributes stay far below.
#include <ddal/sfp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sfp/line.h"
#include "support/log_watch.h"

using namespace testing_board;

TEST(SfpLinePath, HasToFit)
{
    const std::string lines = "/sys/class/cpld-sfp-irq/cpld-sfp-irq-1/";
    LogWatch log;
    char text[5];
    EXPECT_EQ(ddal_sfp_read_file(DDAL_SFP_1, std::string(4095 - lines.size(), 'a').c_str(), text), -1001);
    EXPECT_THAT(log.take(), testing::IsEmpty()); // the path fits, but the file does not exist
    const std::string longer(4096 - lines.size(), 'a');
    EXPECT_EQ(ddal_sfp_read_file(DDAL_SFP_1, longer.c_str(), text), -1001);
    EXPECT_EQ(ddal_sfp_write_file(DDAL_SFP_1, longer.c_str(), '1'), -1001);
    EXPECT_THAT(log.take(), testing::ElementsAre("3 ddal_sfp_read_file: could not create full CLASS file path",
                                                 "3 ddal_sfp_write_file: could not create full CLASS file path"));
}
