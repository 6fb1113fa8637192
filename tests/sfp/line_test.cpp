// Control and status lines of the cages, and their events.
#include <atomic>
#include <cerrno>
#include <poll.h>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sfp/modules.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The MBO board's files of cage 1.
const std::string kLines = "/sys/class/cpld-sfp-irq/cpld-sfp-irq-1";

int wait_for_change(int fd, int milliseconds)
{
    pollfd line = {fd, POLLPRI, 0};
    return poll(&line, 1, milliseconds) == 1 && (line.revents & POLLPRI) ? 1 : 0;
}

uint32_t value_of(int fd)
{
    uint32_t value = 99;
    EXPECT_EQ(ddal_sfp_status_event_get(fd, &value), 0);
    return value;
}

int open_event(uint32_t status)
{
    int32_t fd = -1;
    EXPECT_EQ(ddal_sfp_status_event_open(DDAL_SFP_1, status, &fd), 0);
    return fd;
}

} // namespace

TEST(SfpControl, ReadsOneBitOfTheMemory)
{
    plug(1, "lx-1310nm-external"); // this module's status byte does not change
    struct {
        uint32_t ctrl;
        std::string bit; // byte and bit
        unsigned length; // bytes that are read
        uint32_t clear, set;
    } const cases[] = {{1, "118 02", 2, 2, 3}, {4, "110 08", 1, 10, 11}, {5, "118 08", 2, 10, 11}};
    for (const auto &row : cases) {
        const Fault bytewise("pread:/sys/bus/i2c/* short=1 count=0");
        uint32_t value = 99;
        EXPECT_EQ(ddal_sfp_ctrl_get(DDAL_SFP_1, row.ctrl, &value), 0);
        EXPECT_EQ(bytewise.seen(), row.length) << "control " << row.ctrl;
    }
    for (const std::string byte : {"110 ", "118 "}) {
        for (const char *digits : {"01", "02", "04", "08", "10", "20", "40", "80"}) {
            ctl("sfp poke 1 diag 110 00");
            ctl("sfp poke 1 diag 118 0000");
            ctl("sfp poke 1 diag " + byte + digits);
            for (const auto &row : cases) {
                uint32_t value = 99;
                EXPECT_EQ(ddal_sfp_ctrl_get(DDAL_SFP_1, row.ctrl, &value), 0);
                EXPECT_EQ(value, byte + digits == row.bit ? row.set : row.clear)
                    << "control " << row.ctrl << ", " << byte << digits;
            }
        }
    }
}

TEST(SfpControl, DrivesTheLines)
{
    plug(1, "sx-850nm");
    const auto read_back = [](uint32_t ctrl) {
        uint32_t value = 99;
        EXPECT_EQ(ddal_sfp_ctrl_get(DDAL_SFP_1, ctrl, &value), 0);
        return value;
    };
    EXPECT_EQ(ddal_sfp_ctrl_set(DDAL_SFP_1, 0, 1), 0);
    EXPECT_EQ(read_back(0), 1u);
    uint32_t power = 1;
    EXPECT_EQ(ddal_sfp_diagnostic_get(DDAL_SFP_1, DDAL_SFP_DIAG_TX_POWER, &power), 0);
    EXPECT_EQ(power, 0u); // the module reacts
    EXPECT_EQ(ddal_sfp_ctrl_set(DDAL_SFP_1, 0, 0), 0);
    EXPECT_EQ(read_back(0), 0u);
    EXPECT_EQ(ddal_sfp_ctrl_set(DDAL_SFP_1, 2, 11), 0);
    EXPECT_EQ(read_back(3), 11u); // one line for both
    EXPECT_EQ(ddal_sfp_ctrl_set(DDAL_SFP_1, 3, 10), 0);
    EXPECT_EQ(read_back(2), 10u);
}

TEST(SfpControl, RefusesUnsupportedSettings)
{
    LogWatch log;
    for (const auto &[ctrl, value] : {std::pair{0u, 2u}, {0u, 10u}, {2u, 1u}, {2u, 12u}, {3u, 0u}})
        EXPECT_EQ(ddal_sfp_ctrl_set(DDAL_SFP_1, ctrl, value), -EINVAL) << ctrl << " " << value;
    EXPECT_THAT(log.take(), IsEmpty());
    for (const uint32_t ctrl : {1u, 4u, 5u, 6u}) {
        EXPECT_EQ(ddal_sfp_ctrl_set(DDAL_SFP_1, ctrl, 0), -ENOSYS);
        EXPECT_THAT(log.take(),
                    ElementsAre("3 validate_sfp_ctrl_value: SFP ctrl 0x" + std::to_string(ctrl) + " not supported"));
    }
    uint32_t value = 0;
    EXPECT_EQ(ddal_sfp_ctrl_get(DDAL_SFP_1, 6, &value), -ENOSYS);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_sfp_ctrl_get: ctrl: 0x6 not supported for sfpId: 0x10008"));
    EXPECT_EQ(ddal_sfp_ctrl_set(0x10007, 0, 1), -1001);
    EXPECT_EQ(ddal_sfp_ctrl_get(0x10007, 2, &value), -1001);
    EXPECT_EQ(ddal_sfp_ctrl_get(0x10007, 1, &value), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_sfp_write_file: get_control_path failed",
                                        "3 ddal_sfp_read_file: get_control_path failed"));
}

TEST(SfpControl, SurvivesEveryFailure)
{
    plug(1, "sx-850nm");
    uint32_t value = 0;
    Sweep("ddal_sfp_ctrl_get, a line", [&] { return ddal_sfp_ctrl_get(DDAL_SFP_1, 0, &value); })
        .when("open", fails(-1001, {}))
        .when("read/EIO", fails(-1001, {"3 ddal_sfp_read_file: could not read from file: " + kLines + "/tx_dis"}))
        .when("read/end", in_turn({fails(-ENODATA, {}), changes_nothing()})) // the second is the end of the text
        .run();
    Sweep("ddal_sfp_ctrl_get, a bit", [&] { return ddal_sfp_ctrl_get(DDAL_SFP_1, 5, &value); })
        .when("open", fails_with_errno_or(0, {}))
        .when("pread/EIO", fails_with_errno_or(0, {}))
        .when("pread/end", fails(-EFAULT, {}))
        .run();
    Sweep("ddal_sfp_ctrl_set", [] { return ddal_sfp_ctrl_set(DDAL_SFP_1, 2, 10); })
        .when("open", fails(-1001, {"3 ddal_sfp_write_file: could not open file: " + kLines + "/rate_select"}))
        .when("write/EIO", fails(-1001, {"3 ddal_sfp_write_file: could not write to file: " + kLines + "/rate_select"}))
        .when("write/end", fails(-1001, {"3 ddal_sfp_write_file: could not write to file: " + kLines + "/rate_select"}))
        .run();
}

TEST(SfpStatus, ReadsTheNumberUnchanged)
{
    struct {
        const char *text;
        int result;
        uint32_t value;
    } const cases[] = {{"1", 0, 1},         {"0x1", 0, 1},       {"ff", 0, 255},    {"100", -ERANGE, 0},
                       {"zz", -ENODATA, 0}, {"0xFFFF", 0, 0xFF}, {"-1", -ERANGE, 0}};
    for (const auto &row : cases) {
        ctl(std::string("sfp line 1 presence ") + row.text);
        uint32_t value = 99;
        EXPECT_EQ(ddal_sfp_status_get(DDAL_SFP_1, DDAL_SFP_STATUS_PRESENCE, &value), row.result) << row.text;
        EXPECT_EQ(value, row.value) << row.text; // only four characters are read
    }
    ctl("sfp line 1 presence auto");

    LogWatch log;
    uint32_t value = 99;
    EXPECT_EQ(ddal_sfp_status_get(DDAL_SFP_1, 3, &value), -1001);
    EXPECT_EQ(value, 0u);
    value = 99;
    EXPECT_EQ(ddal_sfp_status_get(0x10007, 0, &value), -1001);
    EXPECT_EQ(value, 0u);
    EXPECT_THAT(log.take(),
                ElementsAre("3 ddal_sfp_status_get: Bad Sfp status", "3 ddal_sfp_read_file: get_control_path failed"));
}

TEST(SfpStatus, FollowsTheModule)
{
    const auto lines = [] {
        uint32_t value[3] = {9, 9, 9};
        for (uint32_t status = 0; status < 3; status++)
            EXPECT_EQ(ddal_sfp_status_get(DDAL_SFP_1, status, &value[status]), 0);
        return std::to_string(value[0]) + std::to_string(value[1]) + std::to_string(value[2]);
    };
    plug(1, "sx-850nm");
    EXPECT_EQ(lines(), "001");
    ctl("sfp fault 1 on");
    EXPECT_EQ(lines(), "101");
    ctl("sfp light 1 off");
    EXPECT_EQ(lines(), "111");
    ctl("sfp pull 1");
    EXPECT_EQ(lines(), "110"); // an empty cage pulls its lines up
}

TEST(SfpStatus, SurvivesEveryFailure)
{
    plug(1, "sx-850nm");
    static uint32_t value;
    Sweep("ddal_sfp_status_get", [] { return ddal_sfp_status_get(DDAL_SFP_1, DDAL_SFP_STATUS_PRESENCE, &value); })
        .before([] { value = 99; })
        .after([](const Outcome &seen) { EXPECT_EQ(value, seen.result == 0 ? 1u : 0u); })
        .when("open", fails(-1001, {}))
        .when("read/EIO", fails(-1001, {"3 ddal_sfp_read_file: could not read from file: " + kLines + "/presence"}))
        .when("read/end", in_turn({fails(-ENODATA, {}), changes_nothing()})) // the second is the end of the text
        .run();
}

TEST(SfpEvent, WakesAPollAndReadsTheNewValue)
{
    plug(1, "sx-850nm");
    const int fd = open_event(DDAL_SFP_STATUS_RX_LOS);
    EXPECT_EQ(value_of(fd), 0u);
    EXPECT_EQ(wait_for_change(fd, 0), 0);
    ctl("sfp light 1 off");
    EXPECT_EQ(wait_for_change(fd, 2000), 1);
    EXPECT_EQ(value_of(fd), 1u);
    EXPECT_EQ(wait_for_change(fd, 0), 0);
    ctl("sfp set 1 temperature 50"); // changes no line
    EXPECT_EQ(wait_for_change(fd, 20), 0);
    ctl("sfp light 1 on");
    EXPECT_EQ(wait_for_change(fd, 2000), 1);
    EXPECT_EQ(value_of(fd), 0u);
    EXPECT_EQ(ddal_sfp_status_event_close(fd), 0);
}

TEST(SfpEvent, ChecksTheText)
{
    plug(1, "sx-850nm");
    const int fd = open_event(DDAL_SFP_STATUS_PRESENCE);
    struct {
        const char *text;
        int result;
        const char *line;
    } const cases[] = {
        {"zz", -ENODATA, "3 ddal_sfp_status_event_get: status conversion failed 'zz': -61"},
        {"2", -ERANGE, "3 ddal_sfp_status_event_get: status out of range: 2"},
        {"fffff", -ERANGE, "3 ddal_sfp_status_event_get: status out of range: 65535"},
    };
    for (const auto &row : cases) {
        ctl(std::string("sfp line 1 presence ") + row.text);
        LogWatch log;
        uint32_t value = 99;
        EXPECT_EQ(ddal_sfp_status_event_get(fd, &value), row.result) << row.text;
        EXPECT_EQ(value, 99u);
        EXPECT_THAT(log.take(), ElementsAre(row.line));
    }
    ctl("sfp line 1 presence auto");
    EXPECT_EQ(ddal_sfp_status_event_close(fd), 0);

    LogWatch log;
    EXPECT_EQ(ddal_sfp_status_event_close(-1), -EBADF);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_sfp_status_event_close: failed to close fd: Bad file descriptor"));
}

TEST(SfpEvent, ChecksStatusBeforeCage)
{
    LogWatch log;
    int32_t fd = 77;
    EXPECT_EQ(ddal_sfp_status_event_open(0x10007, 3, &fd), -1001);
    EXPECT_EQ(ddal_sfp_status_event_open(0x10007, 2, &fd), -1001);
    EXPECT_EQ(fd, 77);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_sfp_status_event_open: invalid status 3",
                                        "3 ddal_sfp_status_event_open: get_control_path failed"));
}

TEST(SfpEvent, SurvivesEveryFailure)
{
    plug(1, "sx-850nm");
    int32_t fd = -1;
    Sweep("ddal_sfp_status_event_open",
          [&] {
              const int result = ddal_sfp_status_event_open(DDAL_SFP_1, DDAL_SFP_STATUS_TX_FAULT, &fd);
              if (result == 0)
                  close(fd);
              return result;
          })
        .when("open",
              fails(-1002, {"3 ddal_sfp_status_event_open: cannot open file " + kLines + "/tx_fault for reading: %m"}))
        .run();
    const int opened = open_event(DDAL_SFP_STATUS_TX_FAULT);
    uint32_t value = 0;
    Sweep("ddal_sfp_status_event_get", [&] { return ddal_sfp_status_event_get(opened, &value); })
        .when("pread/EIO", fails_with_errno_or(0, {}))
        .when("pread/end", fails(-1001, {}))
        .run();
    EXPECT_EQ(ddal_sfp_status_event_close(opened), 0);
}

// A reader that reads after every wake-up has seen the last state when the wake-ups stop.
TEST(SfpEvent, ShowsTheLastStateOfAThousandCycles)
{
    plug(1, "sx-850nm");
    for (const char *last : {"pull 1", "plug 1 describe"}) {
        const int fd = open_event(DDAL_SFP_STATUS_PRESENCE);
        uint32_t seen = value_of(fd);
        std::atomic<bool> done = false;
        std::thread hand([&] {
            vboard::Client client{board().directory()};
            for (int cycle = 0; cycle < 1000; cycle++) {
                client.run("sfp pull 1");
                client.run("sfp plug 1 describe");
            }
            client.run(std::string("sfp ") + last);
            done = true;
        });
        int wakes = 0;
        for (bool finished = false; !finished;) {
            finished = done; // reads once more after the last change
            while (wait_for_change(fd, 50)) {
                seen = value_of(fd);
                wakes++;
            }
        }
        hand.join();
        EXPECT_EQ(seen, last[1] == 'l' ? 1u : 0u) << last;
        EXPECT_GT(wakes, 10);
        EXPECT_EQ(ddal_sfp_status_event_close(fd), 0);
    }
}
