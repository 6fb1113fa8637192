// Settings and state of network interfaces through ethtool and interface flags: device 1 of board type 8 is "eth0".
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ddal/phy.h>
#include <ddal/unit.h>

#include "phy/lookup.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

constexpr uint32_t kDevice = 1;

std::string eth0()
{
    const std::string all = ctl("interfaces show");
    const size_t at = all.find("eth0 ");
    return all.substr(at + 5, all.find('\n', at) - at - 5);
}

class Settings : public testing::Test {
protected:
    void SetUp() override
    {
        ddal_unit_get_board(); // read here once, so that no sweep reads it
        for (const char *line : {"speed 1000", "duplex 1", "autoneg 1", "advertising 0x6f"})
            ctl(std::string("interfaces set eth0 ") + line);
        ctl("interfaces refuse eth0 off");
        ctl("link 1 up");
    }
};

} // namespace

TEST_F(Settings, ArePassedThrough)
{
    uint32_t value = 9;
    EXPECT_EQ(ddal_phy_set_speed(kDevice, 1234, 100), 0);
    EXPECT_EQ(ddal_phy_set_duplex_mode(kDevice, 1234, 0), 0);
    EXPECT_EQ(ddal_phy_set_autoneg(kDevice, 1234, 2), 0) << "any state but 1 disables";
    EXPECT_EQ(eth0(), "up link speed 100 duplex 0 autoneg 0 advertising 111");
    EXPECT_EQ(ddal_phy_get_speed(kDevice, 5678, &value), 0);
    EXPECT_EQ(value, 100u);
    EXPECT_EQ(ddal_phy_get_duplex_mode(kDevice, 5678, &value), 0);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(ddal_phy_get_autoneg(kDevice, 5678, &value), 0);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(ddal_phy_set_autoneg(kDevice, 0, 1), 0);
    EXPECT_EQ(ddal_phy_get_autoneg(kDevice, 0, &value), 0);
    EXPECT_EQ(value, 1u);
}

TEST_F(Settings, AnnounceAutonegBeforeTheyChangeIt)
{
    LogWatch log;
    ctl("interfaces refuse eth0 on");
    EXPECT_EQ(ddal_phy_set_autoneg(kDevice, 0, 1), -1001);
    EXPECT_EQ(ddal_phy_set_autoneg(kDevice, 0, 0), -1001);
    EXPECT_EQ(ddal_phy_set_speed(kDevice, 0, 100), -1001);
    EXPECT_EQ(ddal_phy_set_duplex_mode(kDevice, 0, 0), -1001);
    EXPECT_EQ(log.take(), (std::vector<std::string>{"4 ddal_phy_set_autoneg: enabling aneg for interface eth0",
                                                    "4 ddal_phy_set_autoneg: disabling aneg for interface eth0"}));
    EXPECT_EQ(eth0(), "up link speed 1000 duplex 1 autoneg 1 advertising 111");
}

TEST_F(Settings, AdvertisementHasOneBitPerMode)
{
    struct Case {
        uint32_t speed, mode, enable;
        int result;
        const char *advertising; // after clearing all and setting it, and after setting all and clearing it
    };
    const Case kCases[] = {
        {10, 0, 1, 0, "1"},       {10, 1, 1, 0, "2"},        {100, 0, 1, 0, "4"},        {100, 1, 1, 0, "8"},
        {1000, 0, 1, 0, "16"},    {1000, 1, 1, 0, "32"},     {10, 0, 0, 0, "62"},        {1000, 1, 0, 0, "31"},
        {10, 2, 1, -EINVAL, "0"}, {10, 1, 2, -EINVAL, "63"}, {2500, 1, 1, -EINVAL, "0"}, {0, 0, 1, -EINVAL, "0"},
    };
    for (const Case &each : kCases) {
        ctl(each.enable == 1 ? "interfaces set eth0 advertising 0" : "interfaces set eth0 advertising 63");
        EXPECT_EQ(ddal_phy_copper_set_config_advert(kDevice, each.speed, each.mode, each.enable), each.result);
        EXPECT_EQ(eth0().substr(eth0().rfind(' ') + 1), each.advertising) << each.speed << " " << each.mode;
        uint16_t enabled = 9;
        EXPECT_EQ(ddal_phy_copper_get_config_advert(kDevice, each.speed, each.mode, &enabled),
                  each.enable == 2 ? 0 : each.result);
        EXPECT_EQ(enabled, each.result == 0 ? each.enable : each.enable == 2 ? 1 : 9);
    }
}

TEST_F(Settings, StatusFollowsInterfaceAndCable)
{
    struct Case {
        std::vector<std::string> before;
        uint32_t link, speed, duplex;
    };
    const Case kCases[] = {
        {{"link 1 up", "interfaces set eth0 speed 100", "interfaces set eth0 duplex 0"}, 1, 100, 0},
        {{"link 1 down"}, 0, 100, 0},
        {{"interfaces set eth0 speed 100000"}, 0, 100000, 0}, // a speed that needs the high half
    };
    for (const Case &each : kCases) {
        for (const std::string &line : each.before)
            ctl(line);
        ddal_phy_copper_status status{9, 9, 9};
        EXPECT_EQ(ddal_phy_copper_get_status(kDevice, &status), 0);
        EXPECT_EQ(status.link, each.link);
        EXPECT_EQ(status.speed, each.speed);
        EXPECT_EQ(status.duplex, each.duplex);
    }

    EXPECT_EQ(ddal_phy_copper_power_down(kDevice), 0);
    ddal_phy_copper_status status{9, 9, 9};
    EXPECT_EQ(ddal_phy_copper_get_status(kDevice, &status), 0) << "an interface that is down also has a state";
    EXPECT_EQ(status.link, 0u);
    EXPECT_EQ(status.speed, UINT32_MAX);
    EXPECT_EQ(status.duplex, UINT32_MAX);
    EXPECT_EQ(ddal_phy_copper_power_up(kDevice), 0);
}

// A device behind the multiport switch first checks its interface.
TEST_F(Settings, StatusOfASwitchPortNeedsAnInterfaceThatIsUp)
{
    const KeptFile number("/sys/class/net/eth1/dev_id");
    put_file("/sys/class/net/eth1/dev_id", "3\n");
    ddal_phy_copper_status status{9, 9, 9};
    ctl("multiport log");
    EXPECT_EQ(ddal_phy_copper_get_status(0, &status), 0);
    EXPECT_EQ(status.speed, 1000u);
    EXPECT_THAT(ctl("multiport log"), testing::StartsWith("phy 4 "));
}

TEST_F(Settings, SurviveEveryFailure)
{
    uint32_t value = 0;
    Sweep get("ddal_phy_get_speed", [&] { return ddal_phy_get_speed(kDevice, 0, &value); });
    with_lookup(get, "ddal_phy_get_speed")
        .when("socket", fails(-1001, {"3 ddal_phy_get_speed: failed to get settings for interface 0x1[eth0]"}))
        .when("ioctl/EIO", fails(-1001, {"3 ddal_phy_get_speed: failed to get settings for interface 0x1[eth0]"}))
        .when("ioctl/EINTR", fails(-1001, {"3 ddal_phy_get_speed: failed to get settings for interface 0x1[eth0]"}))
        .run();

    Sweep set("ddal_phy_set_duplex_mode", [] { return ddal_phy_set_duplex_mode(kDevice, 0, 1); });
    with_lookup(set, "ddal_phy_set_duplex_mode")
        .when("socket", fails(-1001, {}))
        .when("ioctl/EIO", fails(-1001, {}))
        .when("ioctl/EINTR", fails(-1001, {}))
        .run();

    ddal_phy_copper_status status{};
    Sweep state("ddal_phy_copper_get_status", [&] { return ddal_phy_copper_get_status(kDevice, &status); });
    const std::string name = "3 ddal_phy_copper_get_status: ";
    with_lookup(state, "ddal_phy_copper_get_status")
        .when("socket", fails(-1001, {name + "socket creation failure"}))
        .when("ioctl", in_turn({fails(-1001, {name + "cannot get flags from interface <eth0>"}),
                                fails(-1001, {name + "cannot get flags from interface <eth0>"}),
                                fails(-1001, {name + "ioctl failure for ETHTOOL_GSET"}),
                                fails(-1001, {name + "ioctl failure for ETHTOOL_GSET"}),
                                fails(-1001, {name + "ioctl failure for ETHTOOL_GLINK"})}))
        .run();
}
