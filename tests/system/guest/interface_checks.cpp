// Settings and states of copper links, read from real network drivers.
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

#include <ddal/error.h>
#include <ddal/phy.h>

#include "interfaces.h"

using namespace std::chrono_literals;

namespace {

constexpr uint32_t kCard = 0; // eth1
constexpr uint32_t kEnd = 1;  // eth0
constexpr uint32_t kOtherEnd = 2;
constexpr uint32_t kUnknown = UINT32_MAX;

using Get = int (*)(uint32_t, uint32_t, uint32_t *);

uint32_t setting(Get get, uint32_t phy_dev)
{
    uint32_t value = kUnknown;
    EXPECT_EQ(get(phy_dev, 0, &value), 0) << phy_dev;
    return value;
}

// Returns the state once the link is as wanted, or the last state: a driver's link watch is slow.
ddal_phy_copper_status status_with_link(uint32_t phy_dev, uint32_t link)
{
    ddal_phy_copper_status status{};
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(ddal_phy_copper_get_status(phy_dev, &status), 0) << phy_dev;
        if (status.link == link)
            break;
        std::this_thread::sleep_for(50ms);
    }
    return status;
}

TEST(Interface, TheCardAcceptsSettings)
{
    ASSERT_TRUE(rig::set_up("eth1", true));
    const ddal_phy_copper_status status = status_with_link(kCard, 1);
    EXPECT_EQ(status.link, 1u);
    EXPECT_EQ(status.speed, 100u);
    EXPECT_EQ(status.duplex, 1u);
    EXPECT_EQ(setting(ddal_phy_get_autoneg, kCard), 1u);

    EXPECT_EQ(ddal_phy_set_autoneg(kCard, 0, 0), 0);
    EXPECT_EQ(setting(ddal_phy_get_autoneg, kCard), 0u);
    EXPECT_EQ(ddal_phy_set_speed(kCard, 0, 10), 0);
    EXPECT_EQ(setting(ddal_phy_get_speed, kCard), 10u);
    EXPECT_EQ(ddal_phy_set_duplex_mode(kCard, 0, 0), 0);
    EXPECT_EQ(setting(ddal_phy_get_duplex_mode, kCard), 0u);
    EXPECT_EQ(setting(ddal_phy_get_speed, kCard), 10u);
    EXPECT_EQ(ddal_phy_set_autoneg(kCard, 0, 1), 0);
    EXPECT_EQ(setting(ddal_phy_get_autoneg, kCard), 1u);

    EXPECT_EQ(ddal_phy_set_speed(kCard, 0, 77), DDAL_ERR_FAILURE); // the driver refuses it
}

TEST(Interface, StateFollowsTheLink)
{
    ASSERT_TRUE(rig::set_up("eth0", true));
    ASSERT_TRUE(rig::set_up("eth3", true));
    ddal_phy_copper_status status = status_with_link(kEnd, 1);
    EXPECT_EQ(status.link, 1u);
    EXPECT_EQ(status.speed, 10'000u);
    EXPECT_EQ(setting(ddal_phy_get_duplex_mode, kOtherEnd), 1u);

    ASSERT_TRUE(rig::set_up("eth3", false));
    EXPECT_EQ(status_with_link(kEnd, 0).link, 0u);

    ASSERT_TRUE(rig::set_up("eth0", false));
    ASSERT_EQ(ddal_phy_copper_get_status(kEnd, &status), 0);
    EXPECT_EQ(status.link, 0u);
    EXPECT_EQ(status.speed, kUnknown);
    EXPECT_EQ(status.duplex, kUnknown);

    EXPECT_EQ(ddal_phy_set_speed(kEnd, 0, 100), DDAL_ERR_FAILURE); // this driver has no settings
}

TEST(Phy, RegistersLieAtTheirPlaceInTheirPage)
{
    uint16_t value = 0;
    EXPECT_EQ(ddal_phy_read(kCard, 2, 0, &value), 0);
    EXPECT_EQ(value, 0x0141);
    EXPECT_EQ(ddal_phy_write(kCard, 16, 3, 0xBEEF), 0);
    EXPECT_EQ(ddal_phy_read(kCard, 16, 3, &value), 0);
    EXPECT_EQ(value, 0xBEEF);
    EXPECT_EQ(ddal_phy_read(kCard, 16, 0, &value), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(ddal_phy_read(kCard, 16, 4, &value), DDAL_ERR_FAILURE); // the driver has four pages

    uint32_t state = kUnknown;
    EXPECT_EQ(ddal_phy_copper_loopback_enable(kCard), 0);
    EXPECT_EQ(ddal_phy_get_loopback_state(kCard, &state), 0);
    EXPECT_EQ(state, 1u);
    EXPECT_EQ(ddal_phy_copper_reset(kCard), 0);
    EXPECT_EQ(ddal_phy_get_loopback_state(kCard, &state), 0);
    EXPECT_EQ(state, 0u);
}

TEST(Phy, PowerAlsoSwitchesTheInterface)
{
    constexpr uint16_t kPowerDown = 0x0800;
    ASSERT_TRUE(rig::set_up("eth1", true));
    EXPECT_EQ(ddal_phy_copper_power_down(kCard), 0);
    uint16_t control = 0;
    ddal_phy_copper_status status{};
    EXPECT_EQ(ddal_phy_read(kCard, 0, 0, &control), 0);
    EXPECT_EQ(control & kPowerDown, kPowerDown);
    EXPECT_EQ(ddal_phy_copper_get_status(kCard, &status), 0);
    EXPECT_EQ(status.speed, kUnknown); // the interface is down

    EXPECT_EQ(ddal_phy_copper_power_up(kCard), 0);
    EXPECT_EQ(ddal_phy_read(kCard, 0, 0, &control), 0);
    EXPECT_EQ(control & kPowerDown, 0);
    EXPECT_EQ(status_with_link(kCard, 1).link, 1u);
    std::ifstream line("/sys/class/cpld-usr/cpld-usr/bh_phy_reset");
    EXPECT_EQ(line.get(), '0');
}

} // namespace
