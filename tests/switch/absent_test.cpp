// The library without a switch SDK: on a board of another type whose device tree claims the MBO board.
#include <gtest/gtest.h>

#include <ddal/bcm.h>
#include <ddal/eth_switch.h>
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include "support/board_file.h"
#include "support/log_watch.h"

using namespace testing_board;

TEST(WithoutTheSdk, TheFirstStepFails)
{
    put_cells("/proc/device-tree/board-identity/board-type", {8});
    LogWatch log;
    uint32_t limit = 0, burst = 0;
    EXPECT_EQ(ddal_eth_switch_get_port_egress_shaping(2, 18, &limit, &burst), -1001);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 initialize_eth_switch: cannot initialize SAL abstraction layer",
                              "3 open_bcm_switch: cannot open Broadcom switch",
                              "3 ddal_eth_switch_get_port_egress_shaping: port 18 egress shaping get error",
                          }));
}

TEST(WithoutTheSdk, TheDriversHookReportsThat)
{
    LogWatch log;
    sal_config_init_defaults();
    EXPECT_EQ(log.take(),
              std::vector<std::string>{"3 sal_config_init_defaults: cannot configure SAL for Broadcom 10G switch"});
}

TEST(WithoutAnExternalSwitch, NothingIsSupported)
{
    uint32_t value = 0;
    ddal_phy_copper_status status{};
    EXPECT_EQ(is_BH3_type_multiport_switch(), -1);
    EXPECT_EQ(ex_switch_phy_set_speed(4, 100), -ENOSYS);
    EXPECT_EQ(ex_switch_phy_get_copper_loopback(4, &value), -ENOSYS);
    EXPECT_EQ(ex_switch_phy_copper_get_status(4, &status), -ENOSYS);
}
