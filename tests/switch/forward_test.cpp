// Frames through the virtual switch: each operation of the front end sends one another way, to another queue or with
// another tag, and its undo brings the old way back.
#include <functional>
#include <gtest/gtest.h>
#include <sstream>

#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include "support/board.h"

using namespace testing_board;

namespace {

constexpr uint32_t kSwitch = 2;
constexpr int kPorts = 29;
const uint8_t kMac[6] = {0x02, 0, 0, 0, 0, 0x77};
const std::string kStation = "dst=02:00:00:00:00:77 ";

std::string field(const std::string &line, const std::string &name)
{
    const size_t at = line.find(" " + name + "=");
    return at == std::string::npos ? ""
                                   : line.substr(at + name.size() + 2, line.find(' ', at + 1) - at - name.size() - 2);
}

// Where copies of a frame leave: "18 q0" without a tag, "18 5.3 q0" with VLAN and PCP; "all" for every other port.
std::string way(uint32_t port, const std::string &frame)
{
    ctl("switch sent");
    ctl("switch send " + std::to_string(port) + " " + frame);
    std::istringstream copies(ctl("switch sent"));
    std::string text;
    std::string last;
    int count = 0;
    for (std::string line; std::getline(copies, line); ++count) {
        const std::string tag = field(line, "vlan");
        last = (tag.empty() ? "" : tag + "." + field(line, "pcp") + " ") + "q" + field(line, "queue");
        text += (count ? ", " : "") + line.substr(0, line.find(':')) + " " + last;
    }
    return count == kPorts - 1 ? "all " + last : text;
}

struct Change {
    const char *what;
    uint32_t port;
    std::string frame;
    std::string usual;
    std::function<int()> change;
    std::string changed;
    std::function<int()> undo;
};

void expect_change(const Change &each)
{
    EXPECT_EQ(way(each.port, each.frame), each.usual) << each.what << ", before";
    EXPECT_EQ(each.change(), 0) << each.what;
    EXPECT_EQ(way(each.port, each.frame), each.changed) << each.what;
    EXPECT_EQ(each.undo(), 0) << each.what;
    EXPECT_EQ(way(each.port, each.frame), each.usual) << each.what << ", undone";
}

} // namespace

TEST(Forward, StationsAreLearned)
{
    const std::string there = "dst=02:00:00:00:00:0b src=02:00:00:00:00:0a";
    const std::string back = "dst=02:00:00:00:00:0a src=02:00:00:00:00:0b";
    EXPECT_EQ(way(14, there), "all q0");
    EXPECT_EQ(way(18, back), "14 q0");
    EXPECT_EQ(way(14, there), "18 q0");
    EXPECT_EQ(way(18, there), "") << "a station that is where the frame came in";
    EXPECT_EQ(way(14, back), "18 q0") << "a station that has moved";
    EXPECT_EQ(way(14, "dst=ff:ff:ff:ff:ff:ff src=02:00:00:00:00:0c"), "all q0");
    EXPECT_EQ(ddal_eth_switch_clear_port_learned_arl_entries(kSwitch, 18), 0);
    EXPECT_EQ(way(14, back), "all q0");
    EXPECT_EQ(way(14, "020000000d0e020000000f10810060050800"), "") << "a VLAN that nobody made";
}

TEST(Forward, OperationsChangeTheWay)
{
    const std::string in_vlan = kStation + "vlan=5 pcp=3";
    ASSERT_EQ(ddal_eth_switch_create_svlan(kSwitch, 5), 0);
    for (const uint32_t port : {14u, 18u, 20u})
        ASSERT_EQ(ddal_eth_switch_add_svlan(kSwitch, port, 5), 0);
    const std::vector<Change> kChanges = {
        {"a port in an S-VLAN", 14, in_vlan, "18 5.3 q3, 20 5.3 q3",
         [] { return ddal_eth_switch_add_svlan(kSwitch, 21, 5); }, "18 5.3 q3, 20 5.3 q3, 21 5.3 q3",
         [] { return ddal_eth_switch_remove_svlan(kSwitch, 21, 5); }},
        {"the S-VLAN of frames without a tag", 14, kStation, "all q0",
         [] { return ddal_eth_switch_set_default_svlan(kSwitch, 14, 5); }, "18 5.0 q0, 20 5.0 q0",
         [] { return ddal_eth_switch_remove_default_svlan(kSwitch, 14); }},
        {"a static address", 14, in_vlan, "18 5.3 q3, 20 5.3 q3",
         [] { return ddal_eth_switch_add_static_arl_entry(kSwitch, 20, kMac, 5); }, "20 5.3 q3",
         [] { return ddal_eth_switch_remove_static_arl_entry(kSwitch, 20, kMac, 5); }},
        {"the queue of a PCP", 14, in_vlan, "18 5.3 q3, 20 5.3 q3",
         [] { return ddal_eth_switch_set_port_mapping_pcp_to_cosq(kSwitch, 14, 3, 6); }, "18 5.3 q6, 20 5.3 q6",
         [] { return ddal_eth_switch_set_port_mapping_pcp_to_cosq(kSwitch, 14, 3, 3); }},
    };
    for (const Change &each : kChanges)
        expect_change(each);
    EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, 5), 0);
    EXPECT_EQ(way(14, in_vlan), "");
}

// A burst passes, what comes right behind it does not; the counters say so.
TEST(Forward, RatesDropFrames)
{
    const std::string large = kStation + "payload=" + std::string(2800, '0');
    ddal_eth_switch_port_stats before{}, stats{};
    uint32_t drops[6];
    ASSERT_EQ(ddal_eth_switch_get_port_stats(kSwitch, 20, &before), 0);
    ASSERT_EQ(ddal_eth_switch_add_static_arl_entry(kSwitch, 20, kMac, 4094), 0);
    EXPECT_EQ(ddal_eth_switch_set_port_egress_shaping(kSwitch, 20, 1, 12), 0);
    EXPECT_EQ(way(14, large), "20 q0");
    EXPECT_EQ(way(14, large), "");
    EXPECT_EQ(ddal_eth_switch_get_port_cos_dropped_pkts(kSwitch, 20, drops), 0);
    EXPECT_EQ(drops[0], 1u);
    EXPECT_EQ(ddal_eth_switch_get_port_stats(kSwitch, 20, &stats), 0);
    EXPECT_EQ(stats.tx_packets - before.tx_packets, 1u);
    EXPECT_EQ(stats.tx_octets - before.tx_octets, 1418u);
    EXPECT_EQ(stats.tx_dropped, 1u);
    EXPECT_EQ(ddal_eth_switch_set_port_egress_shaping(kSwitch, 20, 0, 0), 0);
    EXPECT_EQ(way(14, large), "20 q0");

    EXPECT_EQ(ddal_eth_switch_set_port_ingress_limiting(kSwitch, 16, 1, 12), 0);
    EXPECT_EQ(way(16, large), "20 q0");
    EXPECT_EQ(way(16, large), "");
    EXPECT_EQ(ddal_eth_switch_get_port_stats(kSwitch, 16, &stats), 0);
    EXPECT_EQ(stats.rx_packets, 2u);
    EXPECT_EQ(stats.rx_dropped, 1u);
    EXPECT_EQ(ddal_eth_switch_set_port_ingress_limiting(kSwitch, 16, 0, 0), 0);
    EXPECT_EQ(way(16, large), "20 q0");
    ctl("link 3 down");
    EXPECT_EQ(way(16, large), "") << "nothing leaves without a link";
    ctl("link 3 up");
    EXPECT_EQ(ddal_eth_switch_remove_static_arl_entry(kSwitch, 20, kMac, 4094), 0);
}
