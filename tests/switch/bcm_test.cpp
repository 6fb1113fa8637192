// The Broadcom operations: their SDK calls, their reports, and the effect of a failing call.
#include <cerrno>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <sstream>

#include <ddal/bcm.h>
#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>
#include <ddal/phy.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"

using namespace testing_board;

namespace {

constexpr uint32_t kFibre = 18;
constexpr uint32_t kCopper = 14; // PHY at MDIO address 1
const uint8_t kMac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

struct Operation {
    std::string what;
    std::function<int()> call;
    std::string calls;               // SDK calls, "; " between them, without "bcm_" and the unit
    std::function<int()> ready = {}; // makes a second call possible
};

// Returns the calls of the last operation without the start-up.
std::string sdk_calls()
{
    std::istringstream calls(ctl("switch calls"));
    std::string text;
    for (std::string line; std::getline(calls, line);) {
        if (line.rfind("bcm_", 0) != 0 || line.rfind("bcm_r", 0) == 0 || line.rfind("bcm_attach", 0) == 0)
            continue;
        const size_t unit = line.find(' ');
        text += (text.empty() ? "" : "; ") + line.substr(4, unit - 4) + line.substr(unit + 2);
    }
    return text;
}

uint32_t value, burst, by_queue[8];
uint16_t word, second_word;
ddal_phy_copper_status status;
ddal_eth_switch_port_stats stats;
ddal_eth_switch_mac_entry macs[4];
ddal_eth_switch_translation translations[4];
uint16_t vlans[24];
uint32_t size;

const std::vector<Operation> &operations()
{
    static const std::string pbmp18 = " 262144 0 0 0 0 0 0 0";
    static const std::vector<Operation> all = {
        {"autoneg on, copper", [] { return ddal_bcm_set_autoneg(kCopper, 1); }, "port_phy_modify 1 2 0 36864 36864"},
        {"autoneg off, copper", [] { return ddal_bcm_set_autoneg(kCopper, 0); }, "port_phy_modify 1 2 0 32768 36864"},
        {"autoneg on, fibre", [] { return ddal_bcm_set_autoneg(kFibre, 1); }, "port_autoneg_set 18 1"},
        {"autoneg?, copper", [] { return ddal_bcm_get_autoneg(kCopper, &value); }, "port_phy_get 1 2 0"},
        {"autoneg?, fibre", [] { return ddal_bcm_get_autoneg(kFibre, &value); }, "port_autoneg_get 18"},
        {"restart", [] { return ddal_bcm_copper_restart_autoneg(20); }, "port_phy_modify 0 2 0 33280 33280"},
        {"full duplex, copper", [] { return ddal_bcm_set_duplex_mode(kCopper, 1); },
         "port_phy_modify 1 2 0 32768 36864; port_phy_modify 1 2 0 33024 33024"},
        {"half duplex, fibre", [] { return ddal_bcm_set_duplex_mode(kFibre, 0); }, "port_duplex_set 18 0"},
        {"duplex?, copper", [] { return ddal_bcm_get_duplex_mode(kCopper, &value); }, "port_phy_get 1 2 0"},
        {"duplex?, fibre", [] { return ddal_bcm_get_duplex_mode(kFibre, &value); }, "port_duplex_get 18"},
        {"10 Mb/s, copper", [] { return ddal_bcm_set_speed(kCopper, 10); },
         "port_phy_modify 1 2 0 32768 36864; port_phy_modify 1 2 0 32768 41024"},
        {"100 Mb/s, copper", [] { return ddal_bcm_set_speed(kCopper, 100); },
         "port_phy_modify 1 2 0 32768 36864; port_phy_modify 1 2 0 40960 41024"},
        {"1000 Mb/s, copper", [] { return ddal_bcm_set_speed(kCopper, 1000); },
         "port_phy_modify 1 2 0 32768 36864; port_phy_modify 1 2 0 32832 41024"},
        {"speed?, copper", [] { return ddal_bcm_get_speed(kCopper, &value); }, "port_phy_get 1 2 0"},
        {"2500 Mb/s, fibre", [] { return ddal_bcm_set_speed(kFibre, 2500); }, "port_speed_set 18 2500"},
        {"speed?, fibre", [] { return ddal_bcm_get_speed(kFibre, &value); }, "port_speed_get 18"},
        {"power down, copper", [] { return ddal_bcm_power_down(16); }, "port_phy_modify 0 2 0 2048 2048"},
        {"power up, copper", [] { return ddal_bcm_power_up(16); }, "port_phy_modify 0 2 0 0 2048"},
        {"power down, fibre", [] { return ddal_bcm_power_down(21); }, "port_enable_set 21 0"},
        {"power up, fibre", [] { return ddal_bcm_power_up(21); }, "port_enable_set 21 1"},
        {"copper reset", [] { return ddal_bcm_copper_reset(kCopper); }, "port_phy_modify 1 2 0 32768 32768"},
        {"register write", [] { return ddal_bcm_write_ext_phy_register(kCopper, 4, 0x0de1); },
         "port_phy_set 1 2 4 3553"},
        {"register read", [] { return ddal_bcm_read_ext_phy_register(kCopper, 4, &word); }, "port_phy_get 1 2 4"},
        {"status, copper", [] { return ddal_bcm_copper_get_status(kCopper, &status); },
         "port_link_status_get 14; port_speed_get 14; port_phy_get 1 2 17"},
        {"status, fibre", [] { return ddal_bcm_copper_get_status(kFibre, &status); },
         "port_link_status_get 18; port_speed_get 18; port_duplex_get 18"},
        {"advertise 100 full, copper", [] { return ddal_bcm_set_config_advert(kCopper, 100, 1, 1); },
         "port_phy_modify 1 2 4 256 256; port_phy_modify 1 2 0 32768 32768"},
        {"no 1000 half, copper", [] { return ddal_bcm_set_config_advert(kCopper, 1000, 0, 0); },
         "port_phy_modify 1 2 9 0 256; port_phy_modify 1 2 0 32768 32768"},
        {"advertised?, copper", [] { return ddal_bcm_get_config_advert(kCopper, 1000, 1, &word); },
         "port_phy_get 1 2 9"},
        {"advertise 2500 full, fibre", [] { return ddal_bcm_set_config_advert(kFibre, 2500, 1, 1); },
         "port_ability_advert_get 18; port_ability_advert_set 18 0 2240 3"},
        {"no 10000 full, fibre", [] { return ddal_bcm_set_config_advert(kFibre, 10000, 1, 0); },
         "port_ability_advert_get 18; port_ability_advert_set 18 0 192 3"},
        {"advertise 10 half, fibre", [] { return ddal_bcm_set_config_advert(kFibre, 10, 0, 1); },
         "port_ability_advert_get 18; port_ability_advert_set 18 1 192 3"},
        {"advertised?, fibre", [] { return ddal_bcm_get_config_advert(kFibre, 100, 0, &word); },
         "port_ability_advert_get 18"},
        {"no pause, fibre", [] { return ddal_bcm_set_config_advert_pause(kFibre, 0, 0); },
         "port_ability_advert_get 18; port_ability_advert_set 18 1 192 0"},
        {"pause?, fibre", [] { return ddal_bcm_get_config_advert_pause(kFibre, &word, &second_word); },
         "port_ability_advert_get 18"},
        {"recovered clock", [] { return ddal_bcm_set_rclk_freq(kCopper, 7); },
         "port_phy_get 1 2 22; port_phy_set 1 2 22 2; port_phy_get 1 2 16; port_phy_set 1 2 16 15425; port_phy_set 1 2 "
         "22 0"},
        {"recovered clock?", [] { return ddal_bcm_get_rclk_freq(kCopper, &word); },
         "port_phy_get 1 2 22; port_phy_set 1 2 22 2; port_phy_get 1 2 16; port_phy_set 1 2 22 0"},
        {"crossover", [] { return ddal_bcm_set_mdix(kCopper, 1); }, "port_mdix_set 14 3"},
        {"crossover?", [] { return ddal_bcm_get_mdix(kCopper, &word); }, "port_mdix_get 14"},
        {"PHY loopback", [] { return ddal_bcm_set_phy_loopback(kFibre, 7); }, "port_loopback_set 18 2"},
        {"PHY loopback?", [] { return ddal_bcm_get_phy_loopback(kFibre, &value); }, "port_loopback_get 18"},
        {"master", [] { return ddal_bcm_set_master_slave(20, 1); }, "port_master_set 20 1"},
        {"multi-port", [] { return ddal_bcm_set_master_slave(20, 4); }, "port_phy_modify 20 4 524265 1024 1024"},
        {"single-port", [] { return ddal_bcm_set_master_slave(20, 8); }, "port_phy_modify 20 4 524265 0 1024"},
        {"master?", [] { return ddal_bcm_get_master_slave(20, &word); },
         "port_phy_get 20 4 524257; port_phy_get 20 4 524266"},
        {"role configuration?", [] { return ddal_bcm_get_master_slave_configuration(20, &word, &second_word); },
         "port_master_get 20; port_phy_get 20 4 524265"},
        {"egress shaping", [] { return ddal_bcm_port_egress_shaping_set(kFibre, 5, 6); },
         "port_rate_egress_set 18 5 6"},
        {"egress shaping?", [] { return ddal_bcm_port_egress_shaping_get(kFibre, &value, &burst); },
         "port_rate_egress_get 18"},
        {"ingress limiting", [] { return ddal_bcm_port_ingress_limiting_set(kFibre, 7, 8); },
         "port_rate_ingress_set 18 7 8"},
        {"ingress limiting?", [] { return ddal_bcm_port_ingress_limiting_get(kFibre, &value, &burst); },
         "port_rate_ingress_get 18"},
        {"drops?", [] { return ddal_bcm_cos_dropped_pkts_get(kFibre, by_queue); },
         "port_gport_get 18; cosq_stat_sync_get32 134217746 0 55; cosq_stat_sync_get32 134217746 1 55; "
         "cosq_stat_sync_get32 134217746 2 55; cosq_stat_sync_get32 134217746 3 55; cosq_stat_sync_get32 134217746 4 "
         "55; cosq_stat_sync_get32 134217746 5 55"},
        {"clear drops", [] { return ddal_bcm_cos_dropped_pkts_set(kFibre); },
         "port_gport_get 18; cosq_stat_set32 134217746 0 55 0; cosq_stat_set32 134217746 1 55 0; cosq_stat_set32 "
         "134217746 2 55 0; cosq_stat_set32 134217746 3 55 0; cosq_stat_set32 134217746 4 55 0; cosq_stat_set32 "
         "134217746 5 55 0"},
        {"statistics", [] { return ddal_bcm_port_stats_get(kFibre, &stats); },
         "stat_multi_get 18 12 58 59 60 61 4 3 62 63 64 65 10 9"},
        {"quanta", [] { return ddal_bcm_set_port_cosq_quanta(kFibre, by_queue); },
         "cosq_port_sched_set" + pbmp18 + " 5 0 0 0 0 0 0 0 0"},
        {"quanta?", [] { return ddal_bcm_get_port_cosq_quanta(kFibre, by_queue); }, "cosq_port_sched_get" + pbmp18},
        {"DSCP mapping", [] { return ddal_bcm_set_mapping_mode(kFibre, 1); },
         "field_action_get 68 12; field_action_get 18 0; field_action_get 68 12; field_action_add 68 12 0 0; "
         "field_entry_install 68; field_action_get 18 0; field_action_add 18 0 7 0; field_entry_install 18; "
         "port_dscp_map_mode_set 18 2"},
        {"DSCP to queue", [] { return ddal_bcm_set_dscp_to_queue_mapping(kFibre, 46, 5); },
         "field_action_get 68 12; port_dscp_map_set 18 46 46 5"},
        {"DSCP to queue?", [] { return ddal_bcm_get_dscp_to_queue_mapping(kFibre, 46, &value); },
         "port_dscp_map_get 18 46"},
        {"default queue in DSCP mode", [] { return ddal_bcm_set_default_queue(kFibre, 3); },
         "field_action_get 68 12; field_action_get 18 0; field_action_get 18 0; field_action_remove 18 0; "
         "field_action_add 18 0 3 0; field_entry_install 18; port_untagged_priority_set 18 3"},
        {"PCP mapping", [] { return ddal_bcm_set_mapping_mode(kFibre, 0); },
         "field_action_get 68 12; field_action_get 18 0; field_action_get 68 12; field_action_get 68 29; "
         "field_action_remove 68 12; field_entry_remove 68; field_action_get 18 0; field_action_get 18 29; "
         "field_action_remove 18 0; field_entry_remove 18; port_dscp_map_mode_set 18 2",
         [] { return ddal_bcm_set_mapping_mode(kFibre, 1); }},
        {"default queue? none set", [] { return ddal_bcm_get_default_queue(kFibre, &value); },
         "field_action_get 18 0; port_untagged_priority_get 18"},
        {"PCP to queue", [] { return ddal_bcm_set_pcp_to_queue_mapping(kFibre, 6, 4); },
         "cosq_port_mapping_set 18 6 4"},
        {"PCP to queue?", [] { return ddal_bcm_get_pcp_to_queue_mapping(kFibre, 6, &value); },
         "cosq_port_mapping_get 18 6"},
        {"QoS on", [] { return ddal_bcm_qos_enable(kFibre); }, "port_dscp_map_mode_set 18 2"},
        {"QoS?", [] { return ddal_bcm_qos_status(kFibre, &value); }, "port_dscp_map_mode_get 18"},
        {"QoS off", [] { return ddal_bcm_qos_disable(kFibre); }, "port_dscp_map_mode_set 18 0"},
        {"S-VLAN", [] { return ddal_bcm_svlan_create(7); }, "vlan_create 7", [] { return ddal_bcm_svlan_remove(7); }},
        {"port in S-VLAN", [] { return ddal_bcm_svlan_port_add(kFibre, 7); },
         "vlan_port_add 7" + pbmp18 + " 0 0 0 0 0 0 0 0"},
        {"port out of S-VLAN", [] { return ddal_bcm_svlan_port_remove(kFibre, 7); }, "vlan_port_remove 7" + pbmp18},
        {"no S-VLAN", [] { return ddal_bcm_svlan_remove(7); }, "vlan_destroy 7",
         [] { return ddal_bcm_svlan_create(7); }},
        {"static addresses?", [] { return size = 4, ddal_bcm_get_mac_addresses(kFibre, macs, &size, 1); },
         "l2_traverse"},
        {"static address", [] { return ddal_bcm_add_static_arl_entry(kFibre, kMac, 100); },
         "l2_addr_add 2272611484757 100 18 32"},
        {"no static address", [] { return ddal_bcm_remove_static_arl_entry(kFibre, kMac, 100); },
         "l2_addr_get 2272611484757 100; l2_addr_delete 2272611484757 100",
         [] { return ddal_bcm_add_static_arl_entry(kFibre, kMac, 100); }},
        {"forget addresses", [] { return ddal_bcm_learned_arl_entries_clear(kFibre); },
         "port_gport_get 18; l2_addr_delete_by_port 0 134217746 0"},
        {"egress translations?", [] { return size = 4, ddal_bcm_egress_translations_get(kFibre, translations, &size); },
         "vlan_translate_egress_action_traverse"},
        {"translations?", [] { return size = 4, ddal_bcm_vlan_translation_get(kFibre, translations, &size); },
         "port_gport_get 18; vlan_translate_action_traverse"},
        {"ethertype out of S-VLAN", [] { return ddal_bcm_ethertype_svlan_remove(kFibre, 0x88f7); },
         "vlan_port_protocol_action_delete 18 1 35063", [] { return ddal_bcm_ethertype_svlan_set(kFibre, 0x88f7, 4); }},
        {"learning mode", [] { return ddal_bcm_vlan_learning_mode_set(0); }, "vlan_control_set 3 0"},
        {"learning mode?", [] { return ddal_bcm_vlan_learning_mode_get(&value); }, "vlan_control_get 3"},
        {"translation on", [] { return ddal_bcm_vlan_translation_enable(kFibre, 4); },
         "vlan_control_port_set 18 14 8; vlan_control_port_set 18 2 1; vlan_control_port_set 18 5 1"},
        {"translation off", [] { return ddal_bcm_vlan_translation_disable(kFibre, 4); },
         "vlan_control_port_set 18 2 0; vlan_control_port_set 18 5 0"},
        {"C-VLANs?", [] { return ddal_bcm_cvlans_get(kFibre, vlans, 4); },
         "port_gport_get 18; vlan_translate_action_traverse"},
    };
    return all;
}

void quieten()
{
    ctl("switch calls");
}

} // namespace

TEST(Bcm, OperationsMakeTheirCalls)
{
    uint32_t speed = 0;
    ASSERT_EQ(ddal_bcm_get_speed(kFibre, &speed), 0); // opens the switch
    for (const Operation &each : operations()) {
        if (each.ready)
            each.ready();
        quieten();
        LogWatch log;
        EXPECT_EQ(each.call(), 0) << each.what;
        EXPECT_EQ(sdk_calls(), each.calls) << each.what;
        EXPECT_EQ(log.take(), std::vector<std::string>{}) << each.what;
    }
}

// Every call of every operation fails once: the result is DDAL_ERR_FAILURE, the SDK's text comes first and a line of
// the operation last.
TEST(Bcm, EveryFailingCallIsReported)
{
    int points = 0;
    for (const Operation &each : operations()) {
        const auto be_ready = [&each] { return each.ready ? each.ready() : 0; };
        be_ready();
        quieten();
        ASSERT_EQ(each.call(), 0) << each.what;
        std::vector<std::string> names;
        std::istringstream calls(sdk_calls());
        for (std::string call; std::getline(calls, call, ';'); calls.get())
            names.push_back("bcm_" + call.substr(0, call.find(' ')));
        std::map<std::string, int> made;
        for (const std::string &name : names) {
            be_ready();
            ctl("switch fail " + name + " -4 1 " + std::to_string(made[name]++));
            LogWatch log;
            EXPECT_EQ(each.call(), -1001) << each.what << ", " << name;
            ctl("switch heal " + name);
            const std::vector<std::string> lines = log.take();
            ++points;
            if (lines.empty()) {
                ADD_FAILURE() << each.what << ", " << name << ": no line";
                continue;
            }
            EXPECT_NE(lines.front().find("Invalid parameter"), std::string::npos) << each.what << ": " << lines.front();
            each.call(); // the failure may have left half of a change
        }
        be_ready();
        each.call(); // later operations rely on it
    }
    ddal_bcm_write_ext_phy_register(kCopper, 22, 0); // restores the page that could not be restored
    std::cout << points << " failing calls\n";
    EXPECT_GT(points, 90);
}

TEST(Bcm, ValuesComeBackAsTheSwitchHasThem)
{
    // Copper: the bits of the control register.
    for (const auto &[bits, autoneg, duplex, speed, result] : {std::tuple{0x1140, 1u, 1u, 1000u, 0},
                                                               {0x2000, 0u, 0u, 100u, 0},
                                                               {0x0100, 0u, 1u, 10u, 0},
                                                               {0x2040, 0u, 0u, 77u, -1001}}) {
        ctl("switch phy 1 set 0 " + std::to_string(bits));
        EXPECT_EQ(ddal_bcm_get_autoneg(kCopper, &value), 0);
        EXPECT_EQ(value, autoneg);
        EXPECT_EQ(ddal_bcm_get_duplex_mode(kCopper, &value), 0);
        EXPECT_EQ(value, duplex);
        value = 77;
        EXPECT_EQ(ddal_bcm_get_speed(kCopper, &value), result);
        EXPECT_EQ(value, speed);
    }
    // Fibre: only two speeds have a code.
    for (const auto &[speed, result] : {std::pair{2500, 0}, {10000, 0}, {1000, -1001}}) {
        EXPECT_EQ(ddal_bcm_set_speed(kFibre, static_cast<uint32_t>(speed)), 0);
        EXPECT_EQ(ddal_bcm_get_speed(kFibre, &value), result) << speed;
    }
    ddal_bcm_set_speed(kFibre, 10000);

    ctl("switch phy 1 set 0 0x1140");
    EXPECT_EQ(ddal_bcm_copper_get_status(kCopper, &status), 0);
    EXPECT_EQ(status.link, 1u);
    EXPECT_EQ(status.duplex, 1u);
    ctl("link 0 down");
    EXPECT_EQ(ddal_bcm_copper_get_status(kCopper, &status), 0);
    EXPECT_EQ(status.link, 0u);
    EXPECT_EQ(status.speed, UINT32_MAX);
    EXPECT_EQ(status.duplex, UINT32_MAX);
    ctl("link 0 up");

    for (const auto &[mode, sdk] : {std::pair{0, 2}, {1, 3}, {2, 0}}) {
        EXPECT_EQ(ddal_bcm_set_mdix(kFibre, static_cast<uint32_t>(mode)), 0);
        EXPECT_NE(ctl("switch show 18").find("mdix " + std::to_string(sdk) + "\n"), std::string::npos);
        EXPECT_EQ(ddal_bcm_get_mdix(kFibre, &word), 0);
        EXPECT_EQ(word, mode);
    }
    for (const uint32_t mode : {0u, 1u, 2u}) {
        EXPECT_EQ(ddal_bcm_set_master_slave(20, mode), 0);
        EXPECT_EQ(ddal_bcm_get_master_slave_configuration(20, &word, &second_word), 0);
        EXPECT_EQ(word, mode);
        EXPECT_EQ(ddal_bcm_get_master_slave(20, &word), 0);
        EXPECT_EQ(word, mode == 1);
    }
}

TEST(Bcm, APhyInResetDoesNotAnswer)
{
    ctl("switch phy 1 hold on");
    LogWatch log;
    EXPECT_EQ(ddal_bcm_read_ext_phy_register(kCopper, 2, &word), -1001);
    EXPECT_EQ(log.take().at(0),
              "3 ddal_bcm_read_ext_phy_register: Reading PHY register 2 failed on port 14: Operation timed out");
    ctl("switch phy 1 hold off");
    EXPECT_EQ(ddal_bcm_read_ext_phy_register(kCopper, 2, &word), 0);
    EXPECT_EQ(word, 0x0141);
}

// The page of the copper ports' PHY is always restored after an access to the clock page.
TEST(Bcm, RecoveredClockPutsThePageBack)
{
    ASSERT_EQ(ddal_bcm_write_ext_phy_register(kCopper, 22, 5), 0);
    for (const char *failing : {"none", "bcm_port_phy_get -4 1 1"}) {
        if (std::string(failing) != "none")
            ctl(std::string("switch fail ") + failing);
        ddal_bcm_get_rclk_freq(kCopper, &word);
        EXPECT_EQ(ddal_bcm_read_ext_phy_register(kCopper, 22, &second_word), 0);
        EXPECT_EQ(second_word, 5) << failing;
    }
    EXPECT_EQ(ddal_bcm_write_ext_phy_register(kCopper, 22, 0), 0);
    ctl("switch phy 1 set 16 0x0c00 2");
    LogWatch log;
    EXPECT_EQ(ddal_bcm_get_rclk_freq(kCopper, &word), -1001);
    EXPECT_EQ(ddal_bcm_set_rclk_freq(kCopper, 3), -1001);
    EXPECT_EQ(ddal_bcm_set_rclk_freq(kFibre, 2), -ENODEV);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 reg_bits_to_frequency: inconsistent device config 0xc00, frequency not retrieved",
                              "3 frequency_to_reg_bits: selected frequency is not supported by the marvell chip: 3",
                              "3 ddal_bcm_set_rclk_freq: port 18 is not copper (or direct phy access is disallowed)",
                          }));
}

TEST(Bcm, RefusesBeforeItCallsTheSwitch)
{
    struct Refusal {
        std::function<int()> call;
        const char *line;
    };
    const Refusal kRefusals[] = {
        {[] { return ddal_bcm_set_autoneg(256, 9); }, "3 ddal_bcm_set_autoneg: invalid port 256"},
        {[] { return ddal_bcm_get_speed(UINT32_MAX, nullptr); }, "3 ddal_bcm_get_speed: invalid port -1"},
        {[] { return ddal_bcm_set_autoneg(18, 2); }, "3 ddal_bcm_set_autoneg: unsupported DDAL state 2"},
        {[] { return ddal_bcm_set_speed(18, 77); }, "3 ddal_bcm_set_speed: unsupported DDAL speed value 77"},
        {[] { return ddal_bcm_set_speed(14, 2500); }, "3 ddal_bcm_set_speed: unsupported DDAL speed value 2500"},
        {[] { return ddal_bcm_set_config_advert(18, 77, 1, 1); },
         "3 ddal_bcm_set_config_advert: unsupported DDAL speed ability 77"},
        {[] { return ddal_bcm_get_autoneg(18, nullptr); }, "3 ddal_bcm_get_autoneg: state is NULL"},
        {[] { return ddal_bcm_get_duplex_mode(18, nullptr); }, "3 ddal_bcm_get_duplex_mode: mode is NULL"},
        {[] { return ddal_bcm_get_speed(18, nullptr); }, "3 ddal_bcm_get_speed: speed is NULL"},
        {[] { return ddal_bcm_copper_get_status(18, nullptr); }, "3 ddal_bcm_copper_get_status: status cannot be null"},
        {[] { return ddal_bcm_get_rclk_freq(14, nullptr); }, "3 ddal_bcm_get_rclk_freq: frequency cannot be null"},
        {[] { return ddal_bcm_read_ext_phy_register(14, 0, nullptr); },
         "3 ddal_bcm_read_ext_phy_register: data cannot be null"},
        {[] { return ddal_bcm_port_egress_shaping_get(18, &value, nullptr); },
         "3 ddal_bcm_port_egress_shaping_get: pointers to limit or burst cannot be null"},
        {[] { return ddal_bcm_copper_reset(18); },
         "3 ddal_bcm_copper_reset: port 18 is not copper (or direct phy access is disallowed)"},
        {[] { return ddal_bcm_get_config_advert_pause(16, &word, &second_word); },
         "3 ddal_bcm_get_config_advert_pause: Error: must use ddal_phy_read instead for port 16"},
        {[] { return ddal_bcm_set_config_advert_pause(16, 1, 0); },
         "3 ddal_bcm_set_config_advert_pause: Error: must use ddal_phy_write instead for port 16"},
        {[] { return ddal_bcm_set_config_advert_pause(18, 1, 1); },
         "4 ddal_bcm_set_config_advert_pause: Cannot set asymmetric pause directly for port 18"},
    };
    for (const Refusal &each : kRefusals) {
        quieten();
        LogWatch log;
        EXPECT_EQ(each.call(), -1001) << each.line;
        EXPECT_EQ(log.take(), std::vector<std::string>{each.line});
        EXPECT_EQ(sdk_calls(), "") << each.line;
    }
    LogWatch log;
    EXPECT_EQ(ddal_bcm_port_egress_shaping_get(255, &value, &burst), -1001);
    EXPECT_EQ(log.take().at(0), "3 ddal_bcm_port_egress_shaping_get: bcm_port_rate_egress_get failed on port 255: "
                                "Invalid port")
        << "the switch itself is asked about port 255";
}
