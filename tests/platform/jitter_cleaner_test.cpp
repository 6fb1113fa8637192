#include <climits>

#include <ddal/jitter_cleaner.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

const std::string kStatus = "/sys/class/cpld-usr/cpld-usr/jcstat";
const std::string kRead = "3 ddal_jitter_cleaner_stat_read: ", kWrite = "3 ddal_jitter_cleaner_write: ";

TEST(JitterCleaner, StatusIsASignedNumber)
{
    const KeptFile kept(kStatus);
    struct Case {
        const char *text;
        int result;
        int32_t status;
    };
    for (const Case &c : {Case{"1\n", 0, 1},
                          {"-2147483648\n", 0, INT_MIN},
                          {" 17 x", 0, 17},
                          {"", -1001, 5},
                          {"x\n", -1001, 5},
                          {"2147483648\n", -1001, 5},
                          {"99999999999999999999999999999999999999", -1001, 5}}) {
        put_file(kStatus, c.text);
        int32_t status = 5;
        EXPECT_EQ(ddal_jitter_cleaner_stat_read(0, &status), c.result) << c.text;
        EXPECT_EQ(status, c.status) << c.text;
    }
}

TEST(JitterCleaner, HasOneDeviceWhoseRegisterTakes24Bits)
{
    LogWatch log;
    int32_t status;
    EXPECT_EQ(ddal_jitter_cleaner_write(0, 0xFF010203), 0);
    EXPECT_EQ(ctl("jitter-cleaner get"), "66051\n"); // 0x010203
    EXPECT_EQ(ddal_jitter_cleaner_stat_read(1, &status), -1001);
    EXPECT_EQ(ddal_jitter_cleaner_write(1, 0), -1001);
    EXPECT_EQ(log.take(), (std::vector<std::string>{kRead + "Unknown Error", kWrite + "Unknown Error"}));
}

TEST(JitterCleaner, SurvivesEveryFailure)
{
    Sweep("ddal_jitter_cleaner_stat_read",
          [] {
              int32_t status;
              return ddal_jitter_cleaner_stat_read(0, &status);
          })
        .when("open", fails(-1001, {kRead + "cannot open " + kStatus + " %m"}))
        .when("read/EIO", fails(-1001, {kRead + "cannot read " + kStatus + " %m"}))
        .when("read/end",
              in_turn({fails(-1001, {kRead + "cannot read " + kStatus + " No data available"}), changes_nothing()}))
        .run();
    Sweep("ddal_jitter_cleaner_write", [] { return ddal_jitter_cleaner_write(0, 1); })
        .when("open", fails(-1001, {kWrite + "can't open device /dev/spidev2.1: %m"}))
        .when("write/EIO", fails(-1001, {kWrite + "can't write to device /dev/spidev2.1: %m"}))
        .when("write/end", fails(-1001, {kWrite + "can't write to device /dev/spidev2.1: %m"}))
        .when("write/short", fails(-1001, {kWrite + "can't write to device /dev/spidev2.1: *"}))
        .run();
}

} // namespace
