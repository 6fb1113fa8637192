// LEDs of the copper PHYs, on a board whose PHYs are on the SoC's bus.
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include <ddal/atboot.h>
#include <ddal/led.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/led.h"
#include "platform/phy_led.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;
using testing::Contains;
using testing::IsEmpty;

namespace {

const std::string kNames = "/run/config/has/phy_leds/";
// The fourth character of a name is the PHY: "eth0" is PHY 0, which is interface eth1 on this board.
const std::string kPhyOfEth0 = "phy 2090300.mdio:01 ";
const std::string kPhyOfEth1 = "phy 2090300.mdio:00 ";

// Sets both LED registers and the board-wide mode.
void bring_into(const char *value, const char *token)
{
    ctl(kPhyOfEth0 + "set 16 " + value + " 3");
    ctl(kPhyOfEth1 + "set 16 " + value + " 3");
    ctl(std::string("leds set off_led ") + token);
}

std::string led_registers()
{
    return ctl(kPhyOfEth0 + "get 16 3") + ctl(kPhyOfEth1 + "get 16 3");
}

} // namespace

TEST(PhyLed, FollowsTheBoardWideModeAndKeepsItsUpperByte)
{
    bring_into("0xa5c3", "e");
    EXPECT_EQ(ddal_led_set_global_state(0, 0), 0);
    EXPECT_EQ(led_registers(), "0xa588\n0xa588\n");
    EXPECT_EQ(ddal_led_set_global_state(1, 0), 0);
    EXPECT_EQ(led_registers(), "0xa517\n0xa517\n");
    // Only the board-wide mode changes the PHYs.
    EXPECT_EQ(ddal_led_set(DDAL_LED_STATUS, DDAL_LED_DISABLED), 0);
    EXPECT_EQ(led_registers(), "0xa517\n0xa517\n");
}

TEST(PhyLed, ContinuesAfterInvalidNames)
{
    for (const char *name : {"eth", "eth7", "eth/"}) {
        bring_into("0x0000", "e");
        const std::string path = kNames + name;
        const bool is_folder = path.back() == '/'; // only regular files count
        if (is_folder)
            mkdir((kNames + "dir9").c_str(), 0755);
        else
            put_file(path, "");
        LogWatch log;
        EXPECT_EQ(ddal_led_set_global_state(0, 0), is_folder ? 0 : -EINVAL) << name;
        EXPECT_EQ(led_registers(), "0x0088\n0x0088\n") << name;
        const std::vector<std::string> lines = log.take();
        if (is_folder)
            EXPECT_THAT(lines, IsEmpty());
        else
            EXPECT_THAT(lines, testing::ElementsAre(
                                   std::string("3 eif_name_to_phy_id: wrong ethernet interface name ") + name));
        EXPECT_EQ(ddal_led_set(DDAL_LED_GLOBAL_STATE, DDAL_LED_DISABLED), 0)
            << "already shown: the PHYs are not accessed";
        unlink(path.c_str());
        rmdir((kNames + "dir9").c_str());
    }
}

TEST(PhyLed, ContinuesAfterAPhyThatDoesNotAnswer)
{
    for (const char *how : {"pread:/sys/bus/mdio_bus/devices/2090300.mdio:01/phy_regs errno=EIO",
                            "pwrite:/sys/bus/mdio_bus/devices/2090300.mdio:01/phy_regs errno=EIO"}) {
        bring_into("0x1200", "e");
        const Fault fault(how);
        EXPECT_EQ(ddal_led_set_global_state(0, 0), -1001) << how;
        EXPECT_EQ(led_registers(), "0x1200\n0x1288\n") << how;
        EXPECT_EQ(file_content("/sys/class/cpld-usr/cpld-usr/off_led"), "disabled\n") << "the mode stays";
    }
}

TEST(PhyLed, RefusesOtherColours)
{
    bring_into("0x5600", "e");
    LogWatch log;
    EXPECT_EQ(ddal::platform::mv88e1510_set_phy_led(DDAL_LED_SOLID_RED), -EINVAL);
    EXPECT_EQ(log.take(),
              std::vector<std::string>(2, "3 mv88e1510_set_phy_led: unsupported colour (2) for setting phy led"));
    EXPECT_EQ(led_registers(), "0x5600\n0x5600\n");
}

// The PHYs lose their settings in a restart, so this hook runs first.
TEST(PhyLed, IsRestoredAtSystemStart)
{
    for (const auto &[token, registers] : {std::pair{"d", "0x7788\n0x7788\n"}, {"e", "0x7717\n0x7717\n"}}) {
        bring_into("0x7700", token);
        LogWatch log;
        ddal_atboot_run();
        EXPECT_EQ(led_registers(), registers);
        const std::vector<std::string> lines = log.take();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines[0], "6 ddal_atboot_run: Running 'Restore LEDs global state settings'...");
        EXPECT_THAT(lines, testing::Not(Contains(testing::HasSubstr("'Restore LEDs global state settings' returned"))));
    }
    ctl("leds text off_led green");
    LogWatch log;
    ddal_atboot_run();
    EXPECT_THAT(log.take(), Contains("3 ddal_atboot_run: 'Restore LEDs global state settings' returned -14"));
    bring_into("0x7700", "e");
}

TEST(PhyLed, ReportsAFailedScan)
{
    bring_into("0x1200", "e");
    const Fault fault("readdir:/run/config/has/phy_leds nth=1 errno=EIO");
    EXPECT_EQ(ddal_led_set_global_state(0, 0), -EIO);
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(led_registers(), "0x1200\n0x1200\n");
    EXPECT_EQ(file_content("/sys/class/cpld-usr/cpld-usr/off_led"), "disabled\n");
}

// Each PHY is read and then written. A failure of one does not stop the other.
TEST(PhyLed, SurvivesEveryFailure)
{
    const std::string led = "/sys/class/cpld-usr/cpld-usr/off_led";
    const auto failing = [](const char *how, const char *what) {
        return fails(-1001, {std::string("3 ddal_phy_") + how + "_direct: " + what + " *"});
    };
    const auto read_and_write = [&](const char *what) {
        return in_turn({failing("read", what), failing("write", what), failing("read", what), failing("write", what)});
    };
    const std::string no_dev_id[] = {"3 find_name_and_dev_id: couldn't find dev_id *",
                                     "3 find_interface: couldn't find name & dev_id *", "3 ddal_phy_*"};
    const auto no_interface = [&](const std::string &what) {
        return fails(-1001, {"3 ddal_common_read_file: " + what, no_dev_id[0], no_dev_id[1], no_dev_id[2]});
    };
    const Expectation unread = failing("read", "Cannot open file");
    const Expectation unwritten = failing("write", "Cannot open file");
    bring_into("0x1200", "d");
    EXPECT_EQ(ddal::platform::mv88e1510_set_phy_led(DDAL_LED_ENABLED), 0);
    const std::pair<const char *, long (*)()> operations[] = {
        {"mv88e1510_set_phy_led", [] { return long{ddal::platform::mv88e1510_set_phy_led(DDAL_LED_DISABLED)}; }},
        {"restore_led_global_state", [] { return long{ddal::platform::restore_led_global_state()}; }}};
    for (const auto &[name, operation] : operations)
        Sweep(name, operation)
            .before([] { bring_into("0x1200", "d"); })
            .when("open:" + led, fails_with_errno("3 open_ddal_led: unable to open LED device '" + led + "': %m"))
            .when("read/EIO:" + led,
                  fails_with_errno("3 ddal_led_get: unable to read LED device with 'id' 0x01000026 (16777254): %m"))
            .when("read/end:" + led, in_turn({fails(-EFAULT, {}), changes_nothing()}))
            .when("opendir", changes_nothing()) // the board has no PHY LEDs
            .when("readdir", fails_with_errno_or(0, {}))
            .when("fopen", no_interface("error open *"))
            .when("fread/EIO", no_interface("error read *"))
            .when("fread/EINTR", changes_nothing())
            .when("fread", fails(-1001, {no_dev_id[0], no_dev_id[1], no_dev_id[2]}))
            .when("fclose", changes_nothing())
            .when("open", in_turn({unread, unread, unwritten, unwritten, unread, unread, unwritten, unwritten}))
            .when("pread/EIO", failing("read", "Unable to pread"))
            .when("pread/end", failing("read", "Unable to pread"))
            .when("pread/short", failing("read", "Unable to pread")) // the driver does not transfer half registers
            .when("pwrite/EIO", failing("write", "Unable to pwrite"))
            .when("pwrite/end", failing("write", "Unable to pwrite"))
            .when("pwrite/short", failing("write", "Unable to pwrite"))
            .when("close:/sys/bus/mdio_bus/*", read_and_write("Unable to close"))
            .run();
}
