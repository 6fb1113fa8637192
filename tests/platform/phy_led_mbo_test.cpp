// LEDs of the copper PHYs on a board whose PHYs are behind the switch.
#include <filesystem>

#include <ddal/led.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::HasSubstr;

TEST(PhyLedOfMbo, GoesThroughTheSwitch)
{
    std::filesystem::create_directories("/run/config/has/phy_leds");
    put_file("/run/config/has/phy_leds/eth0", "");
    ctl("leds set off_led e");
    ctl("switch calls");
    LogWatch log;
    EXPECT_EQ(ddal_led_set_global_state(0, 0), 0);
    const std::string calls = ctl("switch calls");
    EXPECT_THAT(calls, HasSubstr("bcm_port_phy_get 0 1 2 16"));
    EXPECT_THAT(calls, HasSubstr("bcm_port_phy_set 0 1 2 16 "));
    EXPECT_EQ(log.take(), std::vector<std::string>{}) << calls;
    std::filesystem::remove_all("/run/config/has/phy_leds");
}
