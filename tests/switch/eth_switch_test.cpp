// The front end on the MBO board.
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>

#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"

using namespace testing_board;

namespace {

constexpr uint32_t kSwitch = 2;
constexpr uint32_t kPort = 18;

uint32_t value, burst, by_queue[8], size;
uint16_t vlan, vlans[24];
ddal_eth_switch_port_stats stats;
ddal_eth_switch_mac_entry macs[4];
ddal_eth_switch_translation translations[4];
ddal_eth_switch_multicast_filter filters[4];
const uint8_t kMac[6] = {0x01, 0x00, 0x5e, 0x00, 0x00, 0x01};

struct Operation {
    const char *name;
    std::function<int(uint32_t sw)> call;
    bool board_first = false;
};

// Each operation with arguments that a switch accepts.
const std::vector<Operation> kOperations = {
    {"set_port_egress_shaping", [](uint32_t sw) { return ddal_eth_switch_set_port_egress_shaping(sw, kPort, 1, 2); }},
    {"get_port_egress_shaping",
     [](uint32_t sw) { return ddal_eth_switch_get_port_egress_shaping(sw, kPort, &value, &burst); }},
    {"set_port_ingress_limiting",
     [](uint32_t sw) { return ddal_eth_switch_set_port_ingress_limiting(sw, kPort, 1, 2); }},
    {"get_port_ingress_limiting",
     [](uint32_t sw) { return ddal_eth_switch_get_port_ingress_limiting(sw, kPort, &value, &burst); }},
    {"get_port_cos_dropped_pkts",
     [](uint32_t sw) { return ddal_eth_switch_get_port_cos_dropped_pkts(sw, kPort, by_queue); }},
    {"set_port_cos_dropped_pkts", [](uint32_t sw) { return ddal_eth_switch_set_port_cos_dropped_pkts(sw, kPort); }},
    {"get_port_stats", [](uint32_t sw) { return ddal_eth_switch_get_port_stats(sw, kPort, &stats); }},
    {"create_svlan", [](uint32_t sw) { return ddal_eth_switch_create_svlan(sw, 1); }},
    {"add_svlan", [](uint32_t sw) { return ddal_eth_switch_add_svlan(sw, kPort, 1); }},
    {"remove_svlan", [](uint32_t sw) { return ddal_eth_switch_remove_svlan(sw, kPort, 1); }},
    {"delete_svlan", [](uint32_t sw) { return ddal_eth_switch_delete_svlan(sw, 1); }},
    {"set_default_svlan", [](uint32_t sw) { return ddal_eth_switch_set_default_svlan(sw, kPort, 1); }},
    {"get_default_svlan", [](uint32_t sw) { return ddal_eth_switch_get_default_svlan(sw, kPort, &vlan); }},
    {"remove_default_svlan", [](uint32_t sw) { return ddal_eth_switch_remove_default_svlan(sw, kPort); }},
    {"get_multicast_filters",
     [](uint32_t sw) { return size = 4, ddal_eth_switch_get_multicast_filters(sw, kPort, filters, &size); }},
    {"get_loopback", [](uint32_t sw) { return ddal_eth_switch_get_loopback(sw, kPort, &value); }},
    {"set_synce_source", [](uint32_t sw) { return ddal_eth_switch_set_synce_source(sw, kPort); }},
    {"set_port_cosq_quanta", [](uint32_t sw) { return ddal_eth_switch_set_port_cosq_quanta(sw, kPort, by_queue); }},
    {"get_port_cosq_quanta", [](uint32_t sw) { return ddal_eth_switch_get_port_cosq_quanta(sw, kPort, by_queue); }},
    {"set_port_mapping_mode", [](uint32_t sw) { return ddal_eth_switch_set_port_mapping_mode(sw, kPort, 1); }},
    {"get_port_mapping_mode", [](uint32_t sw) { return ddal_eth_switch_get_port_mapping_mode(sw, kPort, &value); }},
    {"set_port_mapping_dscp_to_cosq",
     [](uint32_t sw) { return ddal_eth_switch_set_port_mapping_dscp_to_cosq(sw, kPort, 1, 2); }},
    {"get_port_mapping_dscp_to_cosq",
     [](uint32_t sw) { return ddal_eth_switch_get_port_mapping_dscp_to_cosq(sw, kPort, 1, &value); }},
    {"set_port_mapping_pcp_to_cosq",
     [](uint32_t sw) { return ddal_eth_switch_set_port_mapping_pcp_to_cosq(sw, kPort, 1, 2); }},
    {"get_port_mapping_pcp_to_cosq",
     [](uint32_t sw) { return ddal_eth_switch_get_port_mapping_pcp_to_cosq(sw, kPort, 1, &value); }},
    {"set_port_default_cosq", [](uint32_t sw) { return ddal_eth_switch_set_port_default_cosq(sw, kPort, 2); }},
    {"get_port_default_cosq", [](uint32_t sw) { return ddal_eth_switch_get_port_default_cosq(sw, kPort, &value); }},
    {"get_port_learned_addrs",
     [](uint32_t sw) { return size = 4, ddal_eth_switch_get_port_learned_addrs(sw, kPort, macs, &size); }},
    {"get_static_arl_entries",
     [](uint32_t sw) { return size = 4, ddal_eth_switch_get_static_arl_entries(sw, kPort, macs, &size); }},
    {"add_static_arl_entry", [](uint32_t sw) { return ddal_eth_switch_add_static_arl_entry(sw, kPort, kMac, 1); }},
    {"remove_static_arl_entry",
     [](uint32_t sw) { return ddal_eth_switch_remove_static_arl_entry(sw, kPort, kMac, 1); }},
    {"clear_port_learned_arl_entries",
     [](uint32_t sw) { return ddal_eth_switch_clear_port_learned_arl_entries(sw, kPort); }},
    {"get_cvlans", [](uint32_t sw) { return size = 4, ddal_eth_switch_get_cvlans(sw, kPort, vlans, &size); }},
    {"get_svlans", [](uint32_t sw) { return size = 4, ddal_eth_switch_get_svlans(sw, kPort, vlans, &size); }},
    {"get_egress_translations",
     [](uint32_t sw) { return size = 4, ddal_eth_switch_get_egress_translations(sw, kPort, translations, &size); }},
    {"add_vlan_translation", [](uint32_t sw) { return ddal_eth_switch_add_vlan_translation(sw, kPort, 100, 1); }},
    {"remove_vlan_translation", [](uint32_t sw) { return ddal_eth_switch_remove_vlan_translation(sw, kPort, 100, 1); }},
    {"get_vlan_translation",
     [](uint32_t sw) { return size = 4, ddal_eth_switch_get_vlan_translation(sw, kPort, translations, &size); }},
    {"get_vlan_translation_status_on_svlan",
     [](uint32_t sw) { return ddal_eth_switch_get_vlan_translation_status_on_svlan(sw, kPort, 1, &value); }},
    {"enable_qos", [](uint32_t sw) { return ddal_eth_switch_enable_qos(sw, kPort); }},
    {"get_qos_status", [](uint32_t sw) { return ddal_eth_switch_get_qos_status(sw, kPort, &value); }},
    {"disable_qos", [](uint32_t sw) { return ddal_eth_switch_disable_qos(sw, kPort); }},
    {"set_ethertype_svlan", [](uint32_t sw) { return ddal_eth_switch_set_ethertype_svlan(sw, kPort, 0x800, 1); }, true},
    {"get_ethertype_svlan", [](uint32_t sw) { return ddal_eth_switch_get_ethertype_svlan(sw, kPort, 0x800, &vlan); },
     true},
    {"remove_ethertype_svlan", [](uint32_t sw) { return ddal_eth_switch_remove_ethertype_svlan(sw, kPort, 0x800); },
     true},
    {"set_vlan_learning_mode", [](uint32_t sw) { return ddal_eth_switch_set_vlan_learning_mode(sw, 1); }, true},
    {"get_vlan_learning_mode", [](uint32_t sw) { return ddal_eth_switch_get_vlan_learning_mode(sw, &value); }, true},
    {"add_multicast_filter", [](uint32_t sw) { return ddal_eth_switch_add_multicast_filter(sw, kPort, 20, kMac); }},
    {"remove_multicast_filter",
     [](uint32_t sw) { return ddal_eth_switch_remove_multicast_filter(sw, kPort, 20, kMac); }},
    {"enable_loopback", [](uint32_t sw) { return ddal_eth_switch_enable_loopback(sw, kPort); }},
    {"disable_loopback", [](uint32_t sw) { return ddal_eth_switch_disable_loopback(sw, kPort); }},
    {"add_tunneling", [](uint32_t sw) { return ddal_eth_switch_add_tunneling(sw, kPort, 20); }},
    {"get_tunneling", [](uint32_t sw) { return ddal_eth_switch_get_tunneling(sw, kPort, &value); }},
    {"remove_tunneling", [](uint32_t sw) { return ddal_eth_switch_remove_tunneling(sw, kPort, 20); }},
    {"add_tunneling_with_ethertype_filter",
     [](uint32_t sw) { return ddal_eth_switch_add_tunneling_with_ethertype_filter(sw, kPort, 21, 0x800); }},
    {"enable_vlan_translation", [](uint32_t sw) { return ddal_eth_switch_enable_vlan_translation(sw, kPort, 1); }},
    {"disable_vlan_translation", [](uint32_t sw) { return ddal_eth_switch_disable_vlan_translation(sw, kPort, 1); }},
};

constexpr int kOperationsOfTheFrontEnd = 57;

} // namespace

// Must run first: a process reads its board type once.
TEST(FrontEnd, ChecksBoardAndSwitchInOrder)
{
    EXPECT_EQ(in_child([] {
                  const KeptFile type("/proc/device-tree/board-identity/board-type");
                  put_cells("/proc/device-tree/board-identity/board-type", {7});
                  std::string faults;
                  for (const Operation &each : kOperations) {
                      LogWatch log;
                      const bool refused = each.call(kSwitch) == -ENOSYS && each.call(1) == -ENOSYS;
                      const std::vector<std::string> lines = log.take();
                      const std::string board = "3 verify_broadcom_support: Board 8 does not support Broadcom switch";
                      if (!refused || lines.size() != 2 || lines[0] != board || (lines[1] == board) != each.board_first)
                          faults += std::string(each.name) + " ";
                  }
                  return faults;
              }),
              "");
}

TEST(FrontEnd, AdmitsOnlySwitch2OfTheMboBoard)
{
    ASSERT_EQ(kOperations.size(), kOperationsOfTheFrontEnd) << "the list is incomplete";
    for (const Operation &each : kOperations) {
        const std::string function = std::string("3 ddal_eth_switch_") + each.name;
        for (const uint32_t other : {0u, 1u, 3u}) {
            LogWatch log;
            EXPECT_EQ(each.call(other), -ENOSYS) << each.name;
            EXPECT_EQ(log.take(),
                      std::vector<std::string>{
                          each.board_first ? function + ": switch type: " + std::to_string(other) + " is not supported"
                                           : function + ": unsupported switch device " + std::to_string(other)});
        }
    }
}

TEST(FrontEnd, OperationsWorkOnAWorkingSwitch)
{
    for (const Operation &each : kOperations) {
        LogWatch log;
        EXPECT_EQ(each.call(kSwitch), 0) << each.name;
        EXPECT_EQ(log.take(), std::vector<std::string>{}) << each.name;
    }
}

TEST(FrontEnd, SvlansAreBounded)
{
    struct Call {
        const char *name;
        std::function<int(uint32_t svlan)> call;
    };
    for (const Call &each : {
             Call{"create_svlan", [](uint32_t svlan) { return ddal_eth_switch_create_svlan(kSwitch, svlan); }},
             Call{"delete_svlan", [](uint32_t svlan) { return ddal_eth_switch_delete_svlan(kSwitch, svlan); }},
             Call{"add_svlan", [](uint32_t svlan) { return ddal_eth_switch_add_svlan(kSwitch, kPort, svlan); }},
             Call{"remove_svlan", [](uint32_t svlan) { return ddal_eth_switch_remove_svlan(kSwitch, kPort, svlan); }},
             Call{"set_default_svlan",
                  [](uint32_t svlan) { return ddal_eth_switch_set_default_svlan(kSwitch, kPort, svlan); }},
             Call{"add_vlan_translation",
                  [](uint32_t svlan) { return ddal_eth_switch_add_vlan_translation(kSwitch, kPort, 9, svlan); }},
             Call{"set_ethertype_svlan",
                  [](uint32_t svlan) { return ddal_eth_switch_set_ethertype_svlan(kSwitch, kPort, 9, svlan); }},
         }) {
        LogWatch log;
        ctl("switch calls");
        EXPECT_EQ(each.call(21), -EOPNOTSUPP) << each.name;
        EXPECT_EQ(log.take(), std::vector<std::string>{std::string("3 ddal_eth_switch_") + each.name +
                                                       ": S-VLAN 21 is not supported (max S-VLAN ID = 20)"});
        EXPECT_EQ(ctl("switch calls"), "");
    }
    EXPECT_EQ(ddal_eth_switch_create_svlan(kSwitch, 20), 0);
    EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, 20), 0);
}

TEST(FrontEnd, ListsReportTheNumberThatDidNotFit)
{
    for (const uint32_t svlan : {3u, 5u, 8u}) {
        EXPECT_EQ(ddal_eth_switch_create_svlan(kSwitch, svlan), 0);
        EXPECT_EQ(ddal_eth_switch_add_svlan(kSwitch, kPort, svlan), 0);
        EXPECT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, kPort, 100 + svlan, svlan), 0);
        ctl("switch learn 18 " + std::to_string(svlan) + " 77");
    }
    struct List {
        const char *what;
        std::function<int(uint32_t *size)> get;
    };
    for (const List &each : {
             List{"S-VLANs", [](uint32_t *n) { return ddal_eth_switch_get_svlans(kSwitch, kPort, vlans, n); }},
             List{"C-VLANs", [](uint32_t *n) { return ddal_eth_switch_get_cvlans(kSwitch, kPort, vlans, n); }},
             List{"translations",
                  [](uint32_t *n) { return ddal_eth_switch_get_vlan_translation(kSwitch, kPort, translations, n); }},
             List{"egress translations",
                  [](uint32_t *n) { return ddal_eth_switch_get_egress_translations(kSwitch, kPort, translations, n); }},
             List{"addresses",
                  [](uint32_t *n) { return ddal_eth_switch_get_port_learned_addrs(kSwitch, kPort, macs, n); }},
         }) {
        for (const auto &[room, result, told] :
             {std::tuple{4u, 0, 3u}, {3u, 0, 3u}, {2u, -ENOMEM, 1u}, {0u, -ENOMEM, 3u}}) {
            size = room;
            EXPECT_EQ(each.get(&size), result) << each.what << " " << room;
            EXPECT_EQ(size, told) << each.what << " " << room;
        }
    }
    size = 2;
    LogWatch log;
    EXPECT_EQ(ddal_eth_switch_get_svlans(kSwitch, kPort, vlans, &size), -ENOMEM);
    EXPECT_EQ(ddal_eth_switch_get_svlans(kSwitch, kPort, vlans, nullptr), -EINVAL);
    size = 2;
    EXPECT_EQ(ddal_eth_switch_get_svlans(kSwitch, kPort, nullptr, &size), -1001);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 ddal_eth_switch_get_svlans: get port 18 S-VLANs array size (2) is less than number of "
                              "S-VLANs (3)",
                              "3 ddal_eth_switch_get_svlans: pointer S-VLANs size is NULL",
                              "3 ddal_bcm_svlans_get: data cannot be null",
                              "3 ddal_eth_switch_get_svlans: get port 18 S-VLANs error",
                          }));
    EXPECT_EQ(vlans[0], 3);
    EXPECT_EQ(vlans[1], 5);

    for (const bool on : {true, false}) {
        EXPECT_EQ(on ? ddal_eth_switch_enable_vlan_translation(kSwitch, kPort, 5)
                     : ddal_eth_switch_disable_vlan_translation(kSwitch, kPort, 5),
                  0);
        EXPECT_EQ(ddal_eth_switch_get_vlan_translation_status_on_svlan(kSwitch, kPort, 5, &value), 0);
        EXPECT_EQ(value, on ? 1u : 2u);
    }
    EXPECT_EQ(ddal_eth_switch_get_vlan_translation_status_on_svlan(kSwitch, 21, 5, &value), 0);
    EXPECT_EQ(value, 0u) << "another port's translation";
    size = 4;
    EXPECT_EQ(ddal_eth_switch_get_port_learned_addrs(kSwitch, kPort, macs, &size), 0);
    EXPECT_EQ(ddal_eth_switch_remove_static_arl_entry(kSwitch, kPort, macs[0].mac, macs[0].vlan), -1001)
        << "a learned address";
    EXPECT_EQ(ddal_eth_switch_get_port_learned_addrs(kSwitch, kPort, macs, &size), 0);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(ddal_eth_switch_clear_port_learned_arl_entries(kSwitch, kPort), 0);
    size = 4;
    EXPECT_EQ(ddal_eth_switch_get_port_learned_addrs(kSwitch, kPort, macs, &size), 0);
    EXPECT_EQ(size, 0u);
}

// Half a translation does not count. Where a process ended between the two entries, the next add makes the other one.
TEST(FrontEnd, ATranslationIsAddedWholeOrNotAtAll)
{
    ctl("switch fail bcm_vlan_translate_egress_action_add -6");
    EXPECT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, 21, 200, 9), -1001);
    size = 4;
    EXPECT_EQ(ddal_eth_switch_get_vlan_translation(kSwitch, 21, translations, &size), 0);
    EXPECT_EQ(size, 0u);
    ctl("switch fail bcm_vlan_translate_egress_action_add -6");
    ctl("switch fail bcm_vlan_translate_action_delete -6");
    EXPECT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, 21, 200, 9), -1001);
    EXPECT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, 21, 200, 8), -EEXIST);
    EXPECT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, 21, 200, 9), 0);
    size = 4;
    EXPECT_EQ(ddal_eth_switch_get_egress_translations(kSwitch, 21, translations, &size), 0);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(ddal_eth_switch_remove_vlan_translation(kSwitch, 21, 200, 8), -1001);
    EXPECT_EQ(ddal_eth_switch_remove_vlan_translation(kSwitch, 21, 200, 9), 0);
}

TEST(FrontEnd, CountersCountAndClear)
{
    ddal_eth_switch_port_stats before{}, after{};
    EXPECT_EQ(ddal_eth_switch_get_port_stats(kSwitch, kPort, &before), 0);
    ctl("switch traffic 18 rx 10 640");
    ctl("switch traffic 18 tx 5 5000000000");
    EXPECT_EQ(ddal_eth_switch_get_port_stats(kSwitch, kPort, &after), 0);
    EXPECT_EQ(after.rx_packets - before.rx_packets, 10u);
    EXPECT_EQ(after.rx_octets - before.rx_octets, 640u);
    EXPECT_EQ(after.tx_packets - before.tx_packets, 5u);
    EXPECT_EQ(after.tx_octets - before.tx_octets, 5000000000u) << "beyond 32 bits";

    ctl("switch drop 18 0 3");
    ctl("switch drop 18 5 7");
    uint32_t drops[6];
    EXPECT_EQ(ddal_eth_switch_get_port_cos_dropped_pkts(kSwitch, kPort, drops), 0);
    EXPECT_EQ(std::vector<uint32_t>(drops, drops + 6), (std::vector<uint32_t>{3, 0, 0, 0, 0, 7}));
    EXPECT_EQ(ddal_eth_switch_set_port_cos_dropped_pkts(kSwitch, kPort), 0);
    EXPECT_EQ(ddal_eth_switch_get_port_cos_dropped_pkts(kSwitch, kPort, drops), 0);
    EXPECT_EQ(std::vector<uint32_t>(drops, drops + 6), std::vector<uint32_t>(6, 0));
}

// DSCP mode uses queue 7 for frames without a tag, PCP mode ends that. The map can be changed in DSCP mode only.
TEST(FrontEnd, MappingModes)
{
    const auto mode = [] { return ddal_eth_switch_get_port_mapping_mode(kSwitch, 12, &value), value; };
    const auto queue = [] { return ddal_eth_switch_get_port_default_cosq(kSwitch, 12, &value), value; };
    EXPECT_EQ(mode(), 0u);
    EXPECT_EQ(queue(), 0u);
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_dscp_to_cosq(kSwitch, 12, 46, 5), -1001);
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_mode(kSwitch, 12, 1), 0);
    EXPECT_EQ(mode(), 1u);
    EXPECT_EQ(queue(), 7u);
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_dscp_to_cosq(kSwitch, 12, 46, 5), 0);
    EXPECT_EQ(ddal_eth_switch_get_port_mapping_dscp_to_cosq(kSwitch, 12, 46, &value), 0);
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(ddal_eth_switch_set_port_default_cosq(kSwitch, 12, 4), 0);
    EXPECT_EQ(queue(), 4u);
    EXPECT_EQ(mode(), 1u) << "another default queue does not change the mode";
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_mode(kSwitch, 12, 2), 0) << "anything but 1";
    EXPECT_EQ(mode(), 0u);
    EXPECT_EQ(ddal_eth_switch_set_port_default_cosq(kSwitch, 12, 6), 0);
    EXPECT_EQ(mode(), 0u) << "a default queue does not set DSCP mode";
    for (const auto &[dscp, to] : {std::pair{64u, 1u}, {1u, 8u}})
        EXPECT_EQ(ddal_eth_switch_set_port_mapping_dscp_to_cosq(kSwitch, 12, dscp, to), -1001);
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_mode(kSwitch, 60, 1), -1001) << "ports from 50 on have no field entries";
}

TEST(FrontEnd, ClockSource)
{
    ctl("switch-shell log");
    for (const auto &[port, result] :
         {std::pair{9u, -1001}, {10u, 0}, {16u, 0}, {17u, -1001}, {18u, 0}, {21u, 0}, {22u, -1001}})
        EXPECT_EQ(ddal_eth_switch_set_synce_source(kSwitch, port), result) << port;
    EXPECT_EQ(ctl("switch-shell log"), "modreg top_misc_control_2 l1_rcvd_pri_clk_port_sel=0\n"
                                       "modreg top_misc_control_2 l1_rcvd_pri_clk_port_sel=6\n"
                                       "modreg top_misc_control_2 l1_rcvd_pri_clk_port_sel=8\n"
                                       "modreg top_misc_control_2 l1_rcvd_pri_clk_port_sel=11\n");
    // The clock comes from the link of that port and stops with it.
    const auto clock_of = [](const char *port) {
        const std::string text = ctl(std::string("switch show ") + port);
        const size_t at = text.find("recovered clock ");
        return at == std::string::npos ? "" : text.substr(at + 16);
    };
    EXPECT_EQ(ddal_eth_switch_set_synce_source(kSwitch, 20), 0);
    EXPECT_EQ(clock_of("21"), "");
    EXPECT_EQ(clock_of("20"), "runs\n");
    ctl("link 3 down");
    EXPECT_EQ(clock_of("20"), "stands still\n");
    EXPECT_EQ(ddal_eth_switch_set_synce_source(kSwitch, 18), 0);
    EXPECT_EQ(clock_of("18"), "runs\n") << "another port's link";
    ctl("link 3 up");
    LogWatch log;
    EXPECT_EQ(ddal_eth_switch_set_synce_source(kSwitch, 17), -1001);
    ctl("switch-shell answer -2");
    EXPECT_EQ(ddal_eth_switch_set_synce_source(kSwitch, 10), -1001);
    ctl("switch-shell answer 0");
    const std::vector<std::string> lines = log.take();
    EXPECT_EQ(lines.at(0), "3 port2channel: Invalid port: 17");
    EXPECT_EQ(lines.at(1), "3 ddal_bcm_set_synce_source: Setting synce source to port 17 failed");
    EXPECT_EQ(lines.at(lines.size() - 2),
              "3 ddal_bcm_set_synce_source: Setting synce source to port 10 failed: No such file or directory");
}
