#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <ddal/rp3.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;

const std::string kMask = "0x140020";

uint32_t mask()
{
    return static_cast<uint32_t>(std::stoul(ctl("fpga get " + kMask), nullptr, 16));
}

std::string state(int fd)
{
    char text[16];
    const ssize_t n = pread(fd, text, sizeof text, 0);
    return {text, static_cast<size_t>(n < 0 ? 0 : n)};
}

bool notified(int fd, int time_out)
{
    pollfd channel = {fd, POLLPRI, 0};
    return poll(&channel, 1, time_out) == 1 && (channel.revents & POLLPRI) != 0;
}

TEST(AlarmChannel, NotifiesOfEachChange)
{
    const struct {
        int (*open)(int *);
        int (*close)(int);
        std::string command;
    } alarms[] = {{ddal_rp3_alarm_event_open, ddal_rp3_alarm_event_close, "alarms rp3 "},
                  {ddal_refab_alarm_event_open, ddal_refab_alarm_event_close, "alarms refab "}};
    for (const auto &alarm : alarms) {
        SCOPED_TRACE(alarm.command);
        ctl(alarm.command + "0");
        int fd = -1;
        ASSERT_EQ(alarm.open(&fd), 0);
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(state(fd), "0\n");
        EXPECT_FALSE(notified(fd, 0));
        ctl(alarm.command + "1");
        ctl(alarm.command + "3");
        EXPECT_TRUE(notified(fd, 5000));
        EXPECT_TRUE(notified(fd, 0)); // stays ready until it is read
        EXPECT_EQ(state(fd), "3\n");
        EXPECT_FALSE(notified(fd, 0));
        ctl(alarm.command + "0");
        EXPECT_TRUE(notified(fd, 5000));
        EXPECT_EQ(alarm.close(fd), 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
}

TEST(AlarmChannel, EnablesTheRp3AlarmUnlessAMaskIsSet)
{
    const struct {
        uint32_t before;
        uint32_t open;
    } cases[] = {{0, 0x01000000}, {0x00000002, 0x00000002}};
    for (const auto &[before, open] : cases) {
        ctl("fpga set " + kMask + " " + std::to_string(before));
        int fd = -1;
        ASSERT_EQ(ddal_rp3_alarm_event_open(&fd), 0);
        EXPECT_EQ(mask(), open);
        EXPECT_EQ(ddal_rp3_alarm_event_close(fd), 0);
        EXPECT_EQ(mask(), 0u);
    }
    // The reference alarm does not depend on the mask.
    ctl("fpga set " + kMask + " 5");
    int fd = -1;
    ASSERT_EQ(ddal_refab_alarm_event_open(&fd), 0);
    EXPECT_EQ(ddal_refab_alarm_event_close(fd), 0);
    EXPECT_EQ(mask(), 5u);
}

TEST(AlarmChannel, ClosesOnlyTheMatchingAttribute)
{
    ctl("fpga set " + kMask + " 5");
    const int other = open("/etc/version", O_RDONLY | O_CLOEXEC);
    int refab = -1, ends[2];
    ASSERT_EQ(ddal_refab_alarm_event_open(&refab), 0);
    ASSERT_EQ(pipe(ends), 0);
    LogWatch log;
    EXPECT_EQ(ddal_rp3_alarm_event_open(nullptr), -1001);
    EXPECT_EQ(ddal_refab_alarm_event_open(nullptr), -1001);
    EXPECT_EQ(ddal_rp3_alarm_event_close(other), -1001);
    EXPECT_EQ(ddal_rp3_alarm_event_close(refab), -1001);
    EXPECT_EQ(ddal_refab_alarm_event_close(other), -1001);
    EXPECT_EQ(ddal_refab_alarm_event_close(ends[0]), -1002); // "pipe:[...]" is not a path
    EXPECT_EQ(ddal_rp3_alarm_event_close(-1), -1002);
    const std::string rp3 = "3 ddal_rp3_alarm_event_close: ", refab_ = "3 ddal_refab_alarm_event_close: ";
    const std::string points = " doesn't point to ";
    EXPECT_EQ(log.take(), (Lines{rp3 + "file descriptor " + std::to_string(other) + points + "rp3_alarm",
                                 rp3 + "file descriptor " + std::to_string(refab) + points + "rp3_alarm",
                                 refab_ + "file descriptor " + std::to_string(other) + points + "refab_alarm",
                                 refab_ + "rindex() failed", rp3 + "readlink() failed with val -1"}));
    for (const int fd : {other, ends[0], ends[1]})
        EXPECT_EQ(close(fd), 0); // still open
    EXPECT_EQ(ddal_refab_alarm_event_close(refab), 0);
    EXPECT_EQ(mask(), 5u);
}

TEST(AlarmChannel, SurvivesEveryFailure)
{
    const std::string attributes = "/sys/class/fpga_usr/fpga_usr/";
    const std::string read = "3 ddal_fpga_read: ", write = "3 ddal_fpga_write: ";
    const auto opening = [](const char *name) {
        return fails(-1002, {"3 ddal_" + std::string(name) +
                             "_event_open: Unable to open /sys/class/fpga_usr/fpga_usr/" + name + ": %m"});
    };
    const std::string no_device = "can't open device fpga_usr: %m", length = "fpga driver returned unexpected len on ";
    int fd = -1;
    Sweep("ddal_rp3_alarm_event_open",
          [&] {
              const int result = ddal_rp3_alarm_event_open(&fd);
              return result == 0 ? close(fd) : result;
          })
        .before([] { ctl("fpga set " + kMask + " 0"); })
        .when("open:" + attributes + "rp3_alarm", opening("rp3_alarm"))
        .when("open", in_turn({fails(-1001, {read + no_device}), fails(-1001, {read + no_device}),
                               fails(-1001, {write + no_device})}))
        .when("pread/EIO", fails(-1001, {read + "fpga read failed: %m"}))
        .when("pread/end", fails(-1001, {read + length + "fpga_usr_read"}))
        .when("pwrite/EIO", fails(-1001, {write + "fpga write failed: %m"}))
        .when("pwrite/end", fails(-1001, {write + length + "fpga_usr_write"}))
        .when("close:" + attributes + "*", fails(-1, {})) // close of the test's descriptor
        .run();
    Sweep("ddal_refab_alarm_event_open",
          [&] {
              const int result = ddal_refab_alarm_event_open(&fd);
              return result == 0 ? close(fd) : result;
          })
        .when("open", opening("refab_alarm"))
        .when("close", fails(-1, {}))
        .run();
    // The write to the mask does not affect the result of closing.
    const int kept = open((attributes + "rp3_alarm").c_str(), O_RDONLY | O_CLOEXEC);
    Sweep("ddal_rp3_alarm_event_close",
          [&] {
              fd = dup(kept);
              const int result = ddal_rp3_alarm_event_close(fd);
              return result == 0 ? 0 : close(fd) + result;
          })
        .when("readlink", fails(-1002, {"3 ddal_rp3_alarm_event_close: readlink() failed with val -1"}))
        .when("open",
              [=](const Injected &injected, const Outcome &) {
                  return Outcome{0, {write + "can't open device fpga_usr: " + strerror(injected.error)}};
              })
        .when("pwrite/EIO", fails(0, {write + "fpga write failed: %m"}))
        .when("pwrite/end", fails(0, {write + length + "fpga_usr_write"}))
        .run();
    close(kept);
}

} // namespace
