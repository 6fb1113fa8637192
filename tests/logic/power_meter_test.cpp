#include <cerrno>
#include <fcntl.h>

#include <ddal/fpga.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

const std::string kAttributes = "/sys/class/fpga_rf_pwr/fpga_rf_pwr/";

struct Setting {
    int (*set)(uint32_t);
    int (*get)(uint32_t *);
    std::string path;
    std::string setter;
    std::string getter;
    std::string noun;
    std::string buffer;
};

const Setting kSettings[] = {
    {ddal_fpga_rf_pwr_loop_cnt_set, ddal_fpga_rf_pwr_loop_cnt_get, kAttributes + "loop_cnt",
     "3 ddal_fpga_rf_pwr_loop_cnt_set: RF Power Meter loop counter set 100 error: *",
     "3 ddal_fpga_rf_pwr_loop_cnt_get: ", "RF Power Meter loop counter", ""},
    {ddal_fpga_rf_pwr_accum_range_set, ddal_fpga_rf_pwr_accum_range_get, kAttributes + "accum_range",
     "3 ddal_fpga_rf_pwr_accum_range_set: RF Power Meter accumulator range set 100 error: *",
     "3 ddal_fpga_rf_pwr_accum_range_get: ", "RF Power Meter accumulator range", " buffer"},
};

TEST(PowerMeterSettings, AreNumbersOf32Bits)
{
    for (const Setting &setting : kSettings) {
        SCOPED_TRACE(setting.path);
        const KeptFile kept(setting.path);
        uint32_t value = 7;
        EXPECT_EQ(setting.set(0xFFFFFFFF), 0);
        EXPECT_EQ(file_content(setting.path), "4294967295");
        EXPECT_EQ(setting.get(&value), 0);
        EXPECT_EQ(value, 0xFFFFFFFFu);

        LogWatch log;
        put_file(setting.path, "4294967296\n");
        EXPECT_EQ(setting.get(&value), -EOVERFLOW);
        put_file(setting.path, "\n");
        EXPECT_EQ(setting.get(&value), -ENODATA);
        EXPECT_EQ(setting.get(nullptr), -EINVAL);
        EXPECT_EQ(value, 0xFFFFFFFFu);
        EXPECT_EQ(log.take(), (std::vector<std::string>{setting.getter + setting.noun + " get error: -75",
                                                        setting.getter + setting.noun + " get error: -61",
                                                        setting.getter + "pointer to " + setting.noun + setting.buffer +
                                                            " is NULL"}));
    }
}

TEST(PowerMeterSettings, SurviveEveryFailure)
{
    for (const Setting &setting : kSettings) {
        const KeptFile kept(setting.path);
        Sweep(setting.path + ", set", [&] { return setting.set(100); })
            .when("open", fails_with_errno_or(0, {"3 ddal_common_write_string: error open *", setting.setter}))
            .when("write/EIO", fails_with_errno_or(0, {"3 ddal_common_write_string: error write *", setting.setter}))
            .when("write/end", fails(-EIO, {"3 ddal_common_write_string: error write *", setting.setter}))
            .when("close", fails_with_errno_or(0, {"3 ddal_common_write_string: error close *", setting.setter}))
            .run();
        setting.set(100);
        const std::string line = setting.getter + setting.noun + " get error: *";
        Sweep(setting.path + ", get",
              [&] {
                  uint32_t value;
                  return setting.get(&value);
              })
            .when("fopen", fails_with_errno_or(0, {"3 ddal_common_read_file: error open *", line}))
            .when("fread/EIO", fails_with_errno_or(0, {"3 ddal_common_read_file: error read *", line}))
            .when("fread/end", fails(-ENODATA, {line}))
            .when("fclose", changes_nothing())
            .run();
    }
}

TEST(PowerMeterChannel, UnpacksTheFirstWordAndPassesTheOthers)
{
    ctl("power-meter stop");
    int fd = -1;
    ASSERT_EQ(ddal_fpga_rf_pwr_open(&fd), 0);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    uint32_t data[11] = {};
    ctl("power-meter record 0xffffffff 1 2 3 4 5 6 7 0xfffffff8");
    EXPECT_EQ(ddal_fpga_rf_pwr_wait(fd, data), 0);
    EXPECT_THAT(data, testing::ElementsAre(0x1f, 0x3ff, 0x3ff, 1, 2, 3, 4, 5, 6, 7, 0xfffffff8));
    ctl("power-meter record 0xc00c00e0 0 0 0 0 0 0 0 0"); // the bits that have no meaning
    EXPECT_EQ(ddal_fpga_rf_pwr_wait(fd, data), 0);
    EXPECT_THAT(data, testing::Each(0));

    LogWatch log;
    ctl("power-meter short 20");
    ctl("power-meter hang-up");
    EXPECT_EQ(ddal_fpga_rf_pwr_wait(fd, data), -EIO);
    EXPECT_EQ(ddal_fpga_rf_pwr_close(fd), 0);
    EXPECT_EQ(ddal_fpga_rf_pwr_close(fd), -EBADF);
    EXPECT_EQ(ddal_fpga_rf_pwr_wait(-1, nullptr), -EINVAL);
    EXPECT_EQ(ddal_fpga_rf_pwr_open(nullptr), -EINVAL);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 ddal_fpga_rf_pwr_wait: RF Power Meter data read error: Success",
                              "3 ddal_fpga_rf_pwr_wait: pointer to RF Power Meter data is NULL",
                              "3 ddal_fpga_rf_pwr_open: pointer to RF Power Meter device descriptor is NULL"}));
    ctl("power-meter start");
}

TEST(PowerMeterChannel, SurvivesEveryFailure)
{
    Sweep("ddal_fpga_rf_pwr_open",
          [] {
              int fd;
              const int result = ddal_fpga_rf_pwr_open(&fd);
              return result == 0 ? ddal_fpga_rf_pwr_close(fd) : result;
          })
        .when("open", fails_with_errno("3 ddal_fpga_rf_pwr_open: RF Power Meter device open error: %m"))
        .when("close", fails_with_errno_or(0, {}))
        .run();

    int fd = -1;
    ctl("power-meter stop");
    ASSERT_EQ(ddal_fpga_rf_pwr_open(&fd), 0);
    Sweep("ddal_fpga_rf_pwr_wait",
          [fd] {
              uint32_t data[11];
              return ddal_fpga_rf_pwr_wait(fd, data);
          })
        .before([] { ctl("power-meter record 1 2 3 4 5 6 7 8 9"); })
        .when("read/EIO", fails_with_errno("3 ddal_fpga_rf_pwr_wait: RF Power Meter data read error: %m"))
        .when("read/end", fails(-EIO, {"3 ddal_fpga_rf_pwr_wait: RF Power Meter data read error: %m"}))
        .run();
    EXPECT_EQ(ddal_fpga_rf_pwr_close(fd), 0);
    ctl("power-meter start");
}

} // namespace
