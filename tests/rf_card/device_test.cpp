// The card's devices: every call on them failing once.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <termios.h>

#include <ddal/rfup.h>
#include <gtest/gtest.h>

#include "rf_card/card.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing_rf_card::Bytes;

namespace {

using Lines = std::vector<std::string>;

int open_uart()
{
    return open("/dev/ttyFPGA3", O_RDWR | O_NOCTTY | O_CLOEXEC);
}

} // namespace

TEST(Message, ChecksItsArgumentsBeforeItOpensTheDevice)
{
    uint8_t out[256] = {};
    LogWatch log;
    const std::string null = "3 ddal_rfup_msg: buffer pointer is NULL, but length is not zero";
    const std::string length = "3 ddal_rfup_msg: Overall Message length too large";
    {
        const Fault opened("open:/dev/rfup-usr errno=EIO count=0");
        EXPECT_EQ(ddal_rfup_msg(0, 1, nullptr, 0, out), -1001);
        EXPECT_EQ(ddal_rfup_msg(0, 0, out, 1, nullptr), -1001);
        EXPECT_EQ(ddal_rfup_msg(0, 200, out, 53, out), -1001);
        EXPECT_EQ(ddal_rfup_msg(0, 255, out, 255, out), -1001);
        EXPECT_EQ(opened.seen(), 0u);
    }
    EXPECT_EQ(log.take(), (Lines{null, null, length, length}));
    EXPECT_EQ(ddal_rfup_msg(0, 0, nullptr, 2, out), 0);
    EXPECT_EQ(ddal_rfup_msg(0, 200, out, 52, out), 0);
}

TEST(Message, FillsTheAnswerEvenAfterAFailure)
{
    uint8_t out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    const Fault fault("ioctl:/dev/rfup-usr nth=1 errno=EIO");
    EXPECT_EQ(ddal_rfup_msg(0, 0, nullptr, 3, out), -1001);
    EXPECT_EQ(Bytes(out, out + 4), (Bytes{0, 0, 0, 0xEE}));
}

TEST(Message, SurvivesEveryFailure)
{
    Sweep("ddal_rfup_msg",
          [] {
              uint8_t out[2];
              return ddal_rfup_msg(0, 0, nullptr, sizeof out, out);
          })
        .succeeds(0)
        .when("open", fails(-1001, {"3 ddal_rfup_msg: can't open device /dev/rfup-usr: %m"}))
        .when("ioctl", fails(-1001, {"3 ddal_rfup_msg: can't perform message operation: %m"}))
        .run();
}

TEST(UartSpeed, ClosesTheDescriptorAndNamesEachFailure)
{
    EXPECT_EQ(bsl_set_uart_speed(open_uart(), 14400), -ETIMEDOUT);
    Sweep("bsl_set_uart_speed",
          [] {
              const int fd = open_uart();
              const int result = bsl_set_uart_speed(fd, 57600);
              if (result >= 0)
                  close(result);
              return result == fd ? 0 : result;
          })
        .succeeds(0)
        .when("open", fails(-EBADF, {})) // close of the test's descriptor
        .when("flock/ENOLCK", fails_with_errno_or(-EIO, {}))
        .when("tcgetattr", fails(-ENETDOWN, {}))
        .when("tcsetattr", fails(-ECONNABORTED, {}))
        .run();
}

TEST(UartSpeed, SetsEightBitsEvenParityRaw)
{
    const int fd = open_uart();
    ASSERT_EQ(bsl_set_uart_speed(fd, 57600), fd);
    termios settings;
    ASSERT_EQ(tcgetattr(fd, &settings), 0);
    EXPECT_EQ(settings.c_cflag & (CSIZE | CSTOPB | PARENB | PARODD | CLOCAL), tcflag_t{CS8 | PARENB | CLOCAL});
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(cfgetospeed(&settings), B57600);
    EXPECT_EQ(cfgetispeed(&settings), B57600);
    close(fd);
}

TEST(Pins, SurviveEveryFailure)
{
    const int fd = open_uart();
    const auto failing = [](const char *line) {
        return fails(BSL_ERR_PINS, {line, "3 bsl_drive_tst_rst: BSL: ERROR: FPGA masked write failed"});
    };
    for (const bool enters : {true, false}) {
        Sweep(enters ? "bsl_entry" : "bsl_reset",
              [=] { return static_cast<long>(enters ? bsl_entry(fd, 0) : bsl_reset(fd, 0)); })
            .succeeds(0)
            .when("open", failing("3 ddal_fpga_masked_write: can't open device fpga_usr: %m"))
            .when("ioctl", failing("3 ddal_fpga_masked_write: ioctl failed: %m"))
            .run();
    }
    close(fd);
}
