// Frames through the virtual switch: each operation of the front end sends one to another port, to another queue or
// with another tag, and its counterpart restores the old path.
#include <algorithm>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>

#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include "way.h"

using namespace testing_board;

namespace {

constexpr uint32_t kSwitch = 2;
const uint8_t kMac[6] = {0x02, 0, 0, 0, 0, 0x77};
const std::string kStation = "dst=02:00:00:00:00:77 ";

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

// Scheduling modes of the SDK
constexpr int kStrict = 1;
constexpr int kInTurn = 2;
constexpr int kWeighted = 3;
constexpr int kDeficit = 5;

struct Ports {
    uint32_t words[8];
};

// Settings that no operation of the library changes.
int schedule(uint32_t port, int mode, const uint32_t (&quanta)[8])
{
    using Call = int (*)(int, Ports, int, const int[8], int);
    const auto call = reinterpret_cast<Call>(dlsym(RTLD_DEFAULT, "bcm_cosq_port_sched_set"));
    int weights[8];
    std::copy(quanta, quanta + 8, weights);
    return call ? call(0, Ports{{1U << port}}, mode, weights, 0) : -1;
}

} // namespace

TEST(Forward, StationsAreLearned)
{
    const std::string there = "dst=02:00:00:00:00:0b src=02:00:00:00:00:0a";
    const std::string back = "dst=02:00:00:00:00:0a src=02:00:00:00:00:0b";
    EXPECT_EQ(way(14, there), "all q0");
    EXPECT_EQ(way(18, back), "14 q0");
    EXPECT_EQ(way(14, there), "18 q0");
    EXPECT_EQ(way(18, there), "") << "a station at the port of entry";
    EXPECT_EQ(way(14, back), "18 q0") << "a station that has moved";
    EXPECT_EQ(way(14, "dst=ff:ff:ff:ff:ff:ff src=02:00:00:00:00:0c"), "all q0");
    EXPECT_EQ(ddal_eth_switch_clear_port_learned_arl_entries(kSwitch, 18), 0);
    EXPECT_EQ(way(14, back), "all q0");
    EXPECT_EQ(way(14, "020000000d0e020000000f10810060050800"), "") << "a VLAN that does not exist";
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
        {"the S-VLAN of an ethertype", 14, kStation + "type=0x88f7", "all q0",
         [] { return ddal_eth_switch_set_ethertype_svlan(kSwitch, 14, 0x88f7, 5); }, "18 5.0 q0, 20 5.0 q0",
         [] { return ddal_eth_switch_remove_ethertype_svlan(kSwitch, 14, 0x88f7); }},
        {"the default queue", 14, kStation, "all q0",
         [] { return ddal_eth_switch_set_port_default_cosq(kSwitch, 14, 4); }, "all q4",
         [] { return ddal_bcm_ifp_cosq_untagged_frame_action_remove(14); }},
        {"DSCP mapping, without a tag", 14, kStation, "all q0",
         [] { return ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 1); }, "all q7",
         [] {
             return ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 0) + ddal_eth_switch_disable_qos(kSwitch, 14);
         }},
    };
    for (const Change &each : kChanges)
        expect_change(each);
    EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, 5), 0);
    EXPECT_EQ(way(14, in_vlan), "");
}

TEST(Forward, TranslationsKeepThePcp)
{
    const std::string from_customer = kStation + "src=00:00:00:00:00:00 vlan=100 pcp=6";
    const std::string to_customer = kStation + "src=00:00:00:00:00:00 vlan=6 pcp=2";
    ASSERT_EQ(ddal_eth_switch_create_svlan(kSwitch, 6), 0);
    ASSERT_EQ(ddal_eth_switch_add_svlan(kSwitch, 14, 6), 0);
    ASSERT_EQ(ddal_eth_switch_add_svlan(kSwitch, 18, 6), 0);
    ASSERT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, 14, 100, 6), 0);
    EXPECT_EQ(way(14, from_customer), "") << "adding does not enable";
    EXPECT_EQ(way(18, to_customer), "14 6.2 q2");
    EXPECT_EQ(ddal_eth_switch_enable_vlan_translation(kSwitch, 14, 6), 0);
    EXPECT_EQ(way(14, from_customer), "18 6.6 q6");
    EXPECT_EQ(way(14, from_customer + " inner=9"), "18 6.6 q6");
    EXPECT_EQ(way(18, to_customer), "14 100.2 q2");
    EXPECT_EQ(ddal_eth_switch_disable_vlan_translation(kSwitch, 14, 6), 0);
    EXPECT_EQ(way(18, to_customer), "14 6.2 q2");
    EXPECT_EQ(ddal_eth_switch_enable_vlan_translation(kSwitch, 14, 6), 0);
    EXPECT_EQ(ddal_eth_switch_remove_vlan_translation(kSwitch, 14, 100, 6), 0);
    EXPECT_EQ(way(14, from_customer), "");
    EXPECT_EQ(way(18, to_customer), "14 6.2 q2");
    EXPECT_EQ(ddal_eth_switch_disable_vlan_translation(kSwitch, 14, 6), 0);
    EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, 6), 0);
}

// DSCP mapping keeps the PCP that the DSCP map would rewrite. Without QoS the map is not read.
TEST(Forward, MapsOfPriorities)
{
    const std::string urgent = kStation + "src=00:00:00:00:00:00 vlan=6 pcp=3 dscp=46";
    ASSERT_EQ(ddal_eth_switch_create_svlan(kSwitch, 6), 0);
    ASSERT_EQ(ddal_eth_switch_add_svlan(kSwitch, 18, 6), 0);
    ASSERT_EQ(ddal_eth_switch_disable_qos(kSwitch, 14), 0);
    EXPECT_EQ(way(14, urgent), "18 6.3 q3");
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 1), 0);
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_dscp_to_cosq(kSwitch, 14, 46, 5), 0);
    EXPECT_EQ(way(14, urgent), "18 6.3 q5");
    EXPECT_EQ(ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 0), 0);
    EXPECT_EQ(way(14, urgent), "18 6.5 q5");
    EXPECT_EQ(ddal_eth_switch_disable_qos(kSwitch, 14), 0);
    EXPECT_EQ(way(14, urgent), "18 6.3 q3");
    EXPECT_EQ(ddal_eth_switch_enable_qos(kSwitch, 14), 0);
    EXPECT_EQ(way(14, urgent), "18 6.5 q5");
    EXPECT_EQ(ddal_eth_switch_disable_qos(kSwitch, 14), 0);
    EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, 6), 0);
}

TEST(Forward, VlansShareAddressesOrNot)
{
    for (const uint32_t vlan : {6u, 7u}) {
        ASSERT_EQ(ddal_eth_switch_create_svlan(kSwitch, vlan), 0);
        for (const uint32_t port : {14u, 18u, 20u})
            ASSERT_EQ(ddal_eth_switch_add_svlan(kSwitch, port, vlan), 0);
    }
    const std::string to_station = "dst=02:00:00:00:00:21 src=00:00:00:00:00:00 vlan=7";
    way(18, "src=02:00:00:00:00:21 vlan=6");
    uint32_t mode = 9;
    for (const auto &[set, seen] :
         {std::pair{0u, "18 7.0 q0, 20 7.0 q0"}, {1u, "18 7.0 q0"}, {0u, "18 7.0 q0, 20 7.0 q0"}}) {
        EXPECT_EQ(ddal_eth_switch_set_vlan_learning_mode(kSwitch, set), 0);
        EXPECT_EQ(way(14, to_station), seen);
        EXPECT_EQ(ddal_eth_switch_get_vlan_learning_mode(kSwitch, &mode), 0);
        EXPECT_EQ(mode, set);
    }
    for (const uint32_t vlan : {6u, 7u})
        EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, vlan), 0);
}

// A port that sends more slowly than frames arrive serves its queues by their weights.
TEST(Forward, QueuesShareACongestedPortByTheirWeights)
{
    constexpr uint32_t kFrames = 60; // in each of the queues 1 and 3
    struct Sharing {
        const char *what;
        int mode; // a mode of the SDK; the library sets deficit round robin
        uint32_t quanta[8];
        uint32_t low; // frames of queue 1 among the first forty
    };
    const std::string large =
        "src=00:00:00:00:00:00 payload=" + std::string(2800, '0') + " " + kStation + "vlan=8 pcp=";
    ASSERT_EQ(ddal_eth_switch_create_svlan(kSwitch, 8), 0);
    ASSERT_EQ(ddal_eth_switch_add_svlan(kSwitch, 20, 8), 0);
    for (const Sharing &each : {
             Sharing{"no weights", kDeficit, {}, 0},
             Sharing{"one queue strict", kDeficit, {0, 7, 0, 0, 0, 0, 0, 0}, 0},
             Sharing{"the other queue strict", kDeficit, {0, 0, 0, 5, 0, 0, 0, 0}, 40},
             Sharing{"the same weight", kDeficit, {0, 1, 0, 1, 0, 0, 0, 0}, 20},
             Sharing{"one to three", kDeficit, {0, 1, 0, 3, 0, 0, 0, 0}, 10},
             Sharing{"four to one", kDeficit, {0, 4, 0, 1, 0, 0, 0, 0}, 32},
             Sharing{"frames, one to three", kWeighted, {0, 1, 0, 3, 0, 0, 0, 0}, 10},
             Sharing{"in turn", kInTurn, {0, 1, 0, 3, 0, 0, 0, 0}, 20},
             Sharing{"strict priority", kStrict, {0, 3, 0, 1, 0, 0, 0, 0}, 0},
         }) {
        uint32_t quanta[8] = {};
        EXPECT_EQ(ddal_eth_switch_set_port_cosq_quanta(kSwitch, 20, each.quanta), 0);
        EXPECT_EQ(ddal_eth_switch_get_port_cosq_quanta(kSwitch, 20, quanta), 0);
        EXPECT_TRUE(std::equal(quanta, quanta + 8, each.quanta)) << each.what;
        if (each.mode != kDeficit) {
            ASSERT_EQ(schedule(20, each.mode, each.quanta), 0) << each.what;
        }
        ASSERT_EQ(ddal_eth_switch_set_port_egress_shaping(kSwitch, 20, 1, 12), 0);
        EXPECT_EQ(way(14, large + "7"), "20 8.7 q7"); // uses up the burst
        for (const char *pcp : {"1", "3"})
            ctl("switch send 14 times=" + std::to_string(kFrames) + " " + large + pcp);
        EXPECT_EQ(ctl("switch sent"), "") << each.what;
        // The burst holds forty and a half frames. The rate delays the next frame for 5 s.
        ASSERT_EQ(ddal_eth_switch_set_port_egress_shaping(kSwitch, 20, 1, 40 * 1422 * 8 / 1000 + 5), 0);
        std::istringstream copies(ctl("switch sent"));
        std::map<std::string, uint32_t> left;
        for (std::string line; std::getline(copies, line);)
            ++left[frame_field(line, "queue")];
        EXPECT_EQ(left["1"] + left["3"], 40u) << each.what;
        EXPECT_NEAR(left["1"], each.low, 2) << each.what;
        ASSERT_EQ(ddal_eth_switch_set_port_egress_shaping(kSwitch, 20, 0, 0), 0);
        ctl("switch sent"); // discards the rest
    }
    const uint32_t none[8] = {};
    EXPECT_EQ(ddal_eth_switch_set_port_cosq_quanta(kSwitch, 20, none), 0);
    EXPECT_EQ(ddal_eth_switch_delete_svlan(kSwitch, 8), 0);
}

// A burst passes. Frames right behind it wait while there is room. The counters show the lost ones.
TEST(Forward, RatesDropFrames)
{
    const std::string large = kStation + "payload=" + std::string(2800, '0');
    ddal_eth_switch_port_stats before{}, stats{};
    uint32_t drops[6];
    ASSERT_EQ(ddal_eth_switch_get_port_stats(kSwitch, 20, &before), 0);
    ASSERT_EQ(ddal_eth_switch_add_static_arl_entry(kSwitch, 20, kMac, 4094), 0);
    EXPECT_EQ(ddal_eth_switch_set_port_egress_shaping(kSwitch, 20, 1, 12), 0);
    EXPECT_EQ(way(14, large), "20 q0");
    EXPECT_EQ(way(14, "times=65 " + large), "") << "a queue has room for 64";
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
