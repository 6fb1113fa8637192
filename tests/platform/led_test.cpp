// Front-panel LEDs: the written token, the text read back, and the rollback of a colour that does not stick.
#include <cerrno>
#include <fstream>

#include <ddal/led.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/program_sweep.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kStatus = "/sys/class/cpld-usr/cpld-usr/st_led";

// Every LED works and is off (or enabled), and the log of writes is empty.
void reset()
{
    for (const char *led : {"st_led", "bh_led", "rf_led", "off_led"}) {
        ctl(std::string("leds normal ") + led);
        ctl(std::string("leds set ") + led + (led[0] == 'o' ? " e" : " o"));
    }
    ctl("leds tokens");
}

uint32_t colour_of(uint32_t led)
{
    uint32_t colour = 99;
    EXPECT_EQ(ddal_led_get(led, &colour), 0);
    return colour;
}

} // namespace

TEST(Led, WritesTokensAndReadsTexts)
{
    struct {
        uint32_t led;
        uint32_t colour;
        const char *token;
        const char *attribute;
        const char *text;
    } const cases[] = {
        {0x1000023, 1, "g\n", "st_led", "solid green\n"},   {0x1000023, 2, "r\n", "st_led", "solid red\n"},
        {0x1000023, 3, "y\n", "st_led", "solid yellow\n"},  {0x1000024, 7, "gb\n", "bh_led", "blinking green\n"},
        {0x1000024, 8, "rb\n", "bh_led", "blinking red\n"}, {0x1000025, 9, "yb\n", "rf_led", "blinking yellow\n"},
        {0x1000025, 0, "o\n", "rf_led", "off\n"},           {0x1000026, 19, "d\n", "off_led", "disabled\n"},
        {0x1000026, 20, "e\n", "off_led", "enabled\n"},
    };
    reset();
    for (const auto &row : cases) {
        EXPECT_EQ(ddal_led_set(row.led, row.colour), 0) << row.token;
        EXPECT_EQ(ctl("leds tokens"), row.token);
        EXPECT_EQ(file_content(std::string("/sys/class/cpld-usr/cpld-usr/") + row.attribute), row.text);
        EXPECT_EQ(colour_of(row.led), row.colour);
        EXPECT_EQ(ddal_led_set(row.led, row.colour), 0); // already shown
        EXPECT_EQ(ctl("leds tokens"), "") << row.text;
    }
}

TEST(Led, RefusesUnknownLedsColoursAndTexts)
{
    reset();
    LogWatch log;
    uint32_t colour = 99;
    EXPECT_EQ(ddal_led_get(0x1000022, &colour), -EINVAL);
    EXPECT_EQ(ddal_led_set(0x1000027, 500), -EINVAL);
    EXPECT_THAT(log.take(),
                ElementsAre("3 open_ddal_led: invalid LED '16777250'", "3 open_ddal_led: invalid LED '16777255'"));
    for (const uint32_t hole : {4u, 6u, 10u, 18u, 21u, 0xFFFFFFFFu})
        EXPECT_EQ(ddal_led_set(DDAL_LED_STATUS, hole), -EINVAL) << hole;
    EXPECT_THAT(
        log.take(),
        ElementsAre("3 colour2brightness: invalid LED 'colour' 4", "3 colour2brightness: invalid LED 'colour' 6",
                    "3 colour2brightness: invalid LED 'colour' 10", "3 colour2brightness: invalid LED 'colour' 18",
                    "3 colour2brightness: invalid LED 'colour' 21", "3 colour2brightness: invalid LED 'colour' -1"));
    for (const char *text : {"unknown", "OFF", "off ", "solid greenish blinking"}) {
        board().run({"leds", "text", "st_led", text});
        EXPECT_EQ(ddal_led_get(DDAL_LED_STATUS, &colour), -EFAULT) << text;
        EXPECT_EQ(ddal_led_set(DDAL_LED_STATUS, 5), -EFAULT)
            << "the read comes before the check of the colour:  " << text;
    }
    EXPECT_EQ(colour, 99u);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(ctl("leds tokens"), "");
}

TEST(Led, RestoresTheOldColourWhenTheNewOneDoesNotStick)
{
    const std::string did_not_stick = "3 ddal_led_set: unable to write LED 'colour' 1 for device with 'id' 0x01000023 "
                                      "(16777251), read back 'colour' ";
    struct {
        const char *what;
        std::vector<const char *> orders;
        int result;
        std::vector<std::string> lines;
        const char *tokens;
    } const cases[] = {
        {"refuses",
         {"refuse st_led"},
         -EINVAL,
         {"3 write_ddal_led: unable to write LED device with 'id' 16777251: Invalid argument"},
         "g\n"},
        {"keeps its colour", {"stick st_led"}, -EINVAL, {did_not_stick + "2"}, "g\n"},
        {"goes to another colour", {"stick st_led y"}, -EINVAL, {did_not_stick + "3"}, "g\nr\n"},
    };
    for (const auto &row : cases) {
        reset();
        ctl("leds set st_led r");
        for (const char *order : row.orders)
            ctl(std::string("leds ") + order);
        LogWatch log;
        EXPECT_EQ(ddal_led_set(DDAL_LED_STATUS, DDAL_LED_SOLID_GREEN), row.result) << row.what;
        EXPECT_EQ(log.take(), row.lines) << row.what;
        EXPECT_EQ(ctl("leds tokens"), row.tokens) << row.what;
    }

    // The rollback fails as well.
    reset();
    ctl("leds set st_led r");
    ctl("leds stick st_led y");
    const Fault second("write:" + kStatus + " nth=2 errno=EIO");
    LogWatch log;
    EXPECT_EQ(ddal_led_set(DDAL_LED_STATUS, DDAL_LED_SOLID_GREEN), -EIO);
    EXPECT_THAT(log.take(),
                ElementsAre(did_not_stick + "3",
                            "3 write_ddal_led: unable to write LED device with 'id' 16777251: Input/output error"));
    reset();
}

TEST(Led, SurvivesEveryFailure)
{
    reset();
    const std::string no_open = "3 open_ddal_led: unable to open LED device '" + kStatus + "': %m";
    const std::string no_read = "3 ddal_led_get: unable to read LED device with 'id' 0x01000023 (16777251): %m";
    const std::string no_write = "3 write_ddal_led: unable to write LED device with 'id' 16777251: %m";
    uint32_t colour = 0;
    Sweep("ddal_led_get", [&] { return ddal_led_get(DDAL_LED_STATUS, &colour); })
        .when("open", fails_with_errno(no_open))
        .when("read/EIO", fails_with_errno(no_read))
        .when("read/end", in_turn({fails(-EFAULT, {}), changes_nothing()})) // the second is the end of the text
        .run();
    Sweep("ddal_led_set", [] { return ddal_led_set(DDAL_LED_STATUS, DDAL_LED_SOLID_RED); })
        .before([] { ctl("leds set st_led g"); })
        .when("open", fails_with_errno(no_open))
        .when("read/EIO", fails_with_errno(no_read))
        .when("read/end", in_turn({fails(-EFAULT, {}), changes_nothing(), fails(-EFAULT, {}), changes_nothing()}))
        .when("write/EIO", fails_with_errno(no_write))
        .when("write/end", fails(-EIO, {"3 write_ddal_led: unable to write LED device with 'id' 16777251: *"}))
        .run();
}

TEST(LedGlobalState, IsStoredFirstWhenPersistent)
{
    struct {
        uint32_t state, persist;
        const char *runs;
        const char *shown;
    } const cases[] = {
        {0, 0, "", "disabled\n"},
        {1, 0, "", "enabled\n"},
        {0, 1, "l2u-dtb set_led 1\nl2u-dtb update\n", "disabled\n"},
        {1, 7, "l2u-dtb set_led 0\nl2u-dtb update\n", "enabled\n"},
    };
    reset();
    for (const auto &row : cases) {
        put_file("/run/stub/log", "");
        EXPECT_EQ(ddal_led_set_global_state(row.state, row.persist), 0);
        EXPECT_EQ(file_content("/run/stub/log"), row.runs);
        EXPECT_EQ(file_content("/sys/class/cpld-usr/cpld-usr/off_led"), row.shown);
    }
    LogWatch log;
    EXPECT_EQ(ddal_led_set_global_state(2, 1), -1001);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_led_set_global_state: Unsupported State"));
}

TEST(LedGlobalState, SurvivesEveryFailure)
{
    reset();
    const std::string led = "/sys/class/cpld-usr/cpld-usr/off_led";
    const std::string no_open = "3 open_ddal_led: unable to open LED device '" + led + "': %m";
    const std::string no_read = "3 ddal_led_get: unable to read LED device with 'id' 0x01000026 (16777254): %m";
    const std::string no_write = "3 write_ddal_led: unable to write LED device with 'id' 16777254: ";
    const std::string tool = "/usr/bin/l2u-dtb";
    Sweep sweep("ddal_led_set_global_state", [] { return ddal_led_set_global_state(0, 1); });
    with_programs(sweep, {{"l2u-dtb set_led 1", tool, ends_with({})}, {"l2u-dtb update", tool, ends_with({})}})
        .before([] {
            ctl("leds set off_led e");
            ctl("leds tokens");
            program_runs();
        })
        .after([](const Outcome &) {
            if (lines_of(file_content("/run/stub/log")).size() < 2) {
                EXPECT_EQ(ctl("leds tokens"), "") << "the mode is unchanged";
            }
        })
        .when("open:" + led, fails_with_errno(no_open))
        .when("read/EIO:" + led, fails_with_errno(no_read))
        .when("read/end:" + led,
              in_turn({fails(-EFAULT, {}), changes_nothing(), fails(-EFAULT, {}), changes_nothing()}))
        .when("write/EIO:" + led, fails_with_errno(no_write + "%m"))
        .when("write/end:" + led, fails(-EIO, {no_write + "*"}))
        .when("opendir", changes_nothing())
        .run();
}
