// Loopbacks, tunnels and address filters: the path of frames, the remaining rules, the number of SDK calls. Runs for
// both meanings of a set bit in an egress mask.
#include <algorithm>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <vector>

#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>
#include <ddal/ext.h>

#include "support/log_watch.h"
#include "way.h"

using namespace testing_board;

namespace {

#ifdef MASKS_KEEP
const char *const kMaskOfTheSwitch = "switch mask keeps";
constexpr uint32_t kBlocked = 0; // ports of a mask as the library reads it: here a set bit blocks
#else
const char *const kMaskOfTheSwitch = "switch mask blocks";
constexpr uint32_t kBlocked = 0xFFFFFFFF;
#endif
constexpr uint32_t kSwitch = 2;
const uint8_t kGroup[6] = {0x01, 0, 0x5e, 0, 0, 0x01};
const uint8_t kOtherGroup[6] = {0x01, 0, 0x5e, 0, 0, 0x02};
const std::string kUntagged = "dst=02:00:00:00:00:77 src=00:00:00:00:00:00";
const std::string kTagged = kUntagged + " vlan=77 pcp=2"; // in a VLAN that does not exist
const std::string kTimed = kUntagged + " type=0x88f7";
const std::string kToGroup = "dst=01:00:5e:00:00:01 src=00:00:00:00:00:00";

class Tunnel : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ctl(kMaskOfTheSwitch);
        uint32_t state = 0;
        ASSERT_EQ(ddal_eth_switch_get_loopback(kSwitch, 14, &state), 0); // opens the switch
        ASSERT_NE(ctl("switch rules"), "");
    }
};

int calls_made(const std::function<int()> &operation)
{
    ctl("switch calls");
    EXPECT_EQ(operation(), 0);
    std::istringstream calls(ctl("switch calls"));
    int count = 0;
    for (std::string line; std::getline(calls, line);)
        ++count;
    return count;
}

int add_filter(uint32_t port, uint32_t to, const uint8_t mac[6])
{
    return ddal_eth_switch_add_multicast_filter(kSwitch, port, to, mac);
}

int remove_filter(uint32_t port, uint32_t to, const uint8_t mac[6])
{
    return ddal_eth_switch_remove_multicast_filter(kSwitch, port, to, mac);
}

struct Pair {
    const char *what;
    std::function<int()> add;
    std::function<int()> remove;
    int calls[2]; // SDK calls to add and to remove
};

const Pair kPairs[] = {
    {"loopback",
     [] { return ddal_eth_switch_enable_loopback(kSwitch, 14); },
     [] { return ddal_eth_switch_disable_loopback(kSwitch, 14); },
     {9, 9}},
    {"tunnel",
     [] { return ddal_eth_switch_add_tunneling(kSwitch, 14, 18); },
     [] { return ddal_eth_switch_remove_tunneling(kSwitch, 14, 18); },
     {64, 58}},
    {"tunnel of an ethertype",
     [] { return ddal_eth_switch_add_tunneling_with_ethertype_filter(kSwitch, 14, 18, 0x88f7); },
     [] { return ddal_eth_switch_remove_tunneling(kSwitch, 14, 18); },
     {50, 48}},
    {"address filter",
     [] { return add_filter(14, 20, kGroup); },
     [] { return remove_filter(14, 20, kGroup); },
     {14, 11}},
    {"queue of frames without a tag",
     [] { return ddal_bcm_ifp_cosq_untagged_frame_action_add(14, 5); },
     [] { return ddal_bcm_ifp_cosq_untagged_frame_action_remove(14); },
     {3, 4}},
    {"PCP preserved",
     [] { return ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(14); },
     [] { return ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(14); },
     {3, 4}},
    {"default S-VLAN",
     [] { return ddal_eth_switch_set_default_svlan(kSwitch, 14, 5); },
     [] { return ddal_eth_switch_remove_default_svlan(kSwitch, 14); },
     {1, 1}},
    {"S-VLAN of an ethertype",
     [] { return ddal_eth_switch_set_ethertype_svlan(kSwitch, 14, 0x88f7, 5); },
     [] { return ddal_eth_switch_remove_ethertype_svlan(kSwitch, 14, 0x88f7); },
     {1, 1}},
    {"translation",
     [] { return ddal_eth_switch_add_vlan_translation(kSwitch, 14, 100, 5); },
     [] { return ddal_eth_switch_remove_vlan_translation(kSwitch, 14, 100, 5); },
     {5, 5}},
    {"translation in force",
     [] { return ddal_eth_switch_enable_vlan_translation(kSwitch, 14, 6); },
     [] { return ddal_eth_switch_disable_vlan_translation(kSwitch, 14, 6); },
     {3, 2}},
    {"DSCP mapping",
     [] { return ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 1); },
     [] { return ddal_eth_switch_set_port_mapping_mode(kSwitch, 14, 0); },
     {9, 11}},
};

// Returns the S-VLANs and translations of a port.
std::string vlans_of(uint32_t port)
{
    uint16_t of_port = 0;
    uint16_t of_type = 0;
    uint32_t status = 0;
    ddal_eth_switch_translation ingress[2]{};
    ddal_eth_switch_translation egress[2]{};
    uint32_t ingress_size = 2;
    uint32_t egress_size = 2;
    ddal_eth_switch_get_default_svlan(kSwitch, port, &of_port);
    ddal_eth_switch_get_ethertype_svlan(kSwitch, port, 0x88f7, &of_type);
    ddal_eth_switch_get_vlan_translation(kSwitch, port, ingress, &ingress_size);
    ddal_eth_switch_get_egress_translations(kSwitch, port, egress, &egress_size);
    ddal_eth_switch_get_vlan_translation_status_on_svlan(kSwitch, port, 6, &status);
    std::string text;
    for (const uint32_t value : {uint32_t{of_port}, uint32_t{of_type}, ingress_size, egress_size, status})
        text += std::to_string(value) + " ";
    return text;
}

// Returns the rules and the S-VLANs. Leaves out the match of entries that are not in the hardware.
std::string state()
{
    std::istringstream rules(ctl("switch rules"));
    std::string text;
    for (std::string line; std::getline(rules, line);) {
        const size_t qualifiers = line.find(" q");
        const size_t actions = line.find(" a", qualifiers);
        if (qualifiers != std::string::npos && line.find("installed") == std::string::npos)
            line.erase(qualifiers, actions == std::string::npos ? actions : actions - qualifiers);
        text += line + "\n";
    }
    return text + vlans_of(14);
}

// Fails each call of the operation in turn. `judge` checks the remaining state.
void sweep(const char *what, const std::function<int()> &operation, const std::function<void()> &before,
           const std::function<void(const std::string &where)> &judge)
{
    before();
    ctl("switch calls");
    ASSERT_EQ(operation(), 0) << what;
    std::istringstream calls(ctl("switch calls"));
    std::vector<std::string> points;
    std::map<std::string, int> made;
    for (std::string name, line; std::getline(calls, line);) {
        name = line.substr(0, line.find(' '));
        points.push_back(name + " -11 1 " + std::to_string(made[name]++));
    }
    judge("nothing failed");
    for (const std::string &point : points) {
        before();
        LogWatch log;
        ctl("switch fail " + point);
        EXPECT_NE(operation(), 0) << what << ", " << point;
        ctl("switch heal " + point.substr(0, point.find(' ')));
        const std::vector<std::string> lines = log.take();
        EXPECT_TRUE(!lines.empty() && lines[0].find("Operation failed") != std::string::npos) << what << ", " << point;
        judge(point);
    }
}

} // namespace

TEST_F(Tunnel, JoinsTwoPortsAndKeepsTheOthersOut)
{
    EXPECT_EQ(way(14, kUntagged), "all q0");
    EXPECT_EQ(way(14, kTagged), "");
    ASSERT_EQ(ddal_eth_switch_add_tunneling(kSwitch, 14, 18), 0);
    uint32_t peer = 0;
    EXPECT_EQ(ddal_eth_switch_get_tunneling(kSwitch, 18, &peer), 0);
    EXPECT_EQ(peer, 14u);
    EXPECT_EQ(way(14, kUntagged), "18 q0");
    EXPECT_EQ(way(18, kTagged), "14 77.2 q2");
    EXPECT_EQ(way(16, kUntagged), "all but 14, 18 q0");
    EXPECT_EQ(ddal_eth_switch_add_tunneling(kSwitch, 14, 18), 0) << "once more";
    EXPECT_EQ(ddal_eth_switch_add_tunneling(kSwitch, 14, 20), -EEXIST);
    EXPECT_EQ(ddal_eth_switch_enable_loopback(kSwitch, 14), -EEXIST);
    EXPECT_EQ(ddal_eth_switch_remove_tunneling(kSwitch, 14, 20), -ENOENT);

    EXPECT_EQ(ddal_eth_switch_add_tunneling(kSwitch, 20, 21), 0);
    EXPECT_EQ(way(16, kUntagged), "all but 14, 18, 20, 21 q0");
    EXPECT_EQ(ddal_eth_switch_remove_tunneling(kSwitch, 18, 14), 0);
    EXPECT_EQ(way(16, kUntagged), "all but 20, 21 q0");
    EXPECT_EQ(way(14, kUntagged), "all but 20, 21 q0");
    EXPECT_EQ(ddal_eth_switch_remove_tunneling(kSwitch, 20, 21), 0);
    EXPECT_EQ(way(14, kUntagged), "all q0");
    EXPECT_EQ(way(14, kTagged), "");
    EXPECT_EQ(ddal_eth_switch_get_tunneling(kSwitch, 18, &peer), -ENOENT);
}

TEST_F(Tunnel, ForAnEthertypeLeavesOtherFramesAlone)
{
    ASSERT_EQ(ddal_eth_switch_add_tunneling_with_ethertype_filter(kSwitch, 14, 18, 0x88f7), 0);
    EXPECT_EQ(way(14, kTimed), "18 q0");
    EXPECT_EQ(way(14, kTimed + " vlan=77"), "18 77.0 q0");
    EXPECT_EQ(way(18, kTimed), "14 q0");
    EXPECT_EQ(way(14, kUntagged), "all q0");
    EXPECT_EQ(way(16, kTimed), "all q0");
    EXPECT_EQ(ddal_bcm_ifp_cosq_untagged_frame_action_add(14, 5), 0);
    EXPECT_EQ(way(14, kUntagged), "all q5") << "the queue is that of frames of all types";
    EXPECT_EQ(way(14, kTimed), "18 q5");
    EXPECT_EQ(ddal_bcm_ifp_cosq_untagged_frame_action_remove(14), 0);
    EXPECT_EQ(ddal_eth_switch_remove_tunneling(kSwitch, 14, 18), 0);
    EXPECT_EQ(way(14, kTimed), "all q0");
}

// A half tunnel passes nothing back, with and without the qualifier for the drop entry.
TEST_F(Tunnel, AHalfTunnelPassesNothingBack)
{
    for (const char *option : {"switch port-sets on", "switch port-sets off"}) {
        ctl(option);
        ASSERT_EQ(ddal_bcm_ifp_redirect_frame_action_add(14, 18, 0), 0);
        ASSERT_EQ(ddal_bcm_ifp_egress_mask_update_all(), 0);
        EXPECT_EQ(way(14, kUntagged), "18 q0");
        EXPECT_EQ(way(18, kUntagged), "") << option;
        ASSERT_EQ(ddal_bcm_ifp_redirect_frame_action_add(18, 14, 0), 0);
        ASSERT_EQ(ddal_bcm_ifp_egress_mask_update_all(), 0);
        EXPECT_EQ(way(18, kUntagged), "14 q0") << option;
        ASSERT_EQ(ddal_bcm_ifp_redirect_frame_action_remove(14, 18), 0);
        EXPECT_EQ(ddal_eth_switch_remove_tunneling(kSwitch, 14, 18), 0) << "the other half";
        EXPECT_EQ(way(18, kUntagged), "all q0") << option;
    }
    ctl("switch port-sets on");
}

TEST_F(Tunnel, LoopbackSendsFramesBack)
{
    uint32_t state = 0;
    ASSERT_EQ(ddal_eth_switch_enable_loopback(kSwitch, 14), 0);
    EXPECT_EQ(way(14, kUntagged), "14 q0");
    EXPECT_EQ(way(14, kTagged), "14 77.2 q2");
    EXPECT_EQ(way(16, kUntagged), "all q0") << "the port still sends the frames of others";
    EXPECT_EQ(ddal_eth_switch_get_loopback(kSwitch, 14, &state), 0);
    EXPECT_EQ(state, 1u);
    EXPECT_EQ(ddal_eth_switch_disable_loopback(kSwitch, 14), 0);
    EXPECT_EQ(way(14, kUntagged), "all q0");
    EXPECT_EQ(ddal_eth_switch_get_loopback(kSwitch, 14, &state), 0);
    EXPECT_EQ(state, 0u);
}

TEST_F(Tunnel, FiltersSendFramesToAnAddressToAPort)
{
    ddal_eth_switch_multicast_filter filters[4];
    uint32_t size = 4;
    EXPECT_EQ(way(14, kToGroup), "all q0");
    ASSERT_EQ(add_filter(14, 20, kGroup), 0);
    ASSERT_EQ(add_filter(14, 21, kOtherGroup), 0);
    EXPECT_EQ(way(14, kToGroup), "20 q0");
    EXPECT_EQ(way(14, kToGroup + " vlan=77 pcp=2"), "20 77.2 q2");
    EXPECT_EQ(way(14, "dst=01:00:5e:00:00:02 src=00:00:00:00:00:00"), "21 q0");
    EXPECT_EQ(way(14, kUntagged), "all q0");
    EXPECT_EQ(way(16, kToGroup), "all q0");
    EXPECT_EQ(ddal_eth_switch_get_multicast_filters(kSwitch, 14, filters, &size), 0);
    ASSERT_EQ(size, 2u);
    EXPECT_EQ(filters[1].mac[5], 2);
    EXPECT_EQ(filters[1].dst_port, 21u);
    size = 1;
    EXPECT_EQ(ddal_eth_switch_get_multicast_filters(kSwitch, 14, filters, &size), -ENOMEM);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(add_filter(14, 21, kGroup), -EEXIST);
    EXPECT_EQ(remove_filter(14, 21, kGroup), -ENOENT);
    EXPECT_EQ(remove_filter(14, 20, kGroup), 0);
    EXPECT_EQ(way(14, kToGroup), "all q0");
    uint8_t mac[6] = {0x01, 0, 0x5e, 0, 1, 0};
    for (mac[5] = 0; mac[5] < 7; ++mac[5])
        EXPECT_EQ(add_filter(14, 20, mac), 0);
    EXPECT_EQ(add_filter(14, 20, mac), -ENOSPC) << "eight a port";
    for (mac[5] = 0; mac[5] < 7; ++mac[5])
        EXPECT_EQ(remove_filter(14, 20, mac), 0);
    EXPECT_EQ(remove_filter(14, 21, kOtherGroup), 0);
}

TEST_F(Tunnel, RulesCostTheirCallsAndLeaveNothing)
{
    for (const Pair &each : kPairs) {
        const std::string before = state();
        const int added = calls_made(each.add);
        const int removed = calls_made(each.remove);
        EXPECT_EQ((std::pair{added, removed}), (std::pair{each.calls[0], each.calls[1]})) << each.what;
        EXPECT_EQ(state(), before) << each.what;
    }
}

// A failed addition leaves nothing. After a failed removal the next removal succeeds.
TEST_F(Tunnel, FailuresLeaveNoHalves)
{
    ASSERT_EQ(add_filter(14, 21, kOtherGroup), 0); // occupies the port's default entries
    ASSERT_EQ(ddal_eth_switch_add_vlan_translation(kSwitch, 14, 101, 6), 0);
    for (const Pair &each : kPairs) {
        const std::string before = state();
        sweep(
            each.what, each.add, [] {},
            [&](const std::string &where) {
                if (where == "nothing failed") {
                    EXPECT_EQ(each.remove(), 0) << each.what;
                }
                EXPECT_EQ(state(), before) << each.what << ", " << where;
            });
        sweep(
            each.what, each.remove, [&] { EXPECT_EQ(each.add(), 0) << each.what; },
            [&](const std::string &where) {
                if (where != "nothing failed")
                    each.remove(); // returns -ENOENT if only the masks were left
                EXPECT_EQ(state(), before) << each.what << ", " << where;
            });
    }
    EXPECT_EQ(remove_filter(14, 21, kOtherGroup), 0);
    EXPECT_EQ(ddal_eth_switch_remove_vlan_translation(kSwitch, 14, 101, 6), 0);
}

// A list of the rules is complete: a property that cannot be read does not count as missing.
TEST_F(Tunnel, RulesAreReadWholeOrNotAtAll)
{
    ASSERT_EQ(ddal_eth_switch_add_tunneling(kSwitch, 14, 18), 0);
    std::vector<ddal_ext_switch_rule> rules(1000);
    uint32_t size = 1000;
    ASSERT_EQ(ddal_ext_switch_rules(rules.data(), &size), 0);
    const auto mask = std::find_if(rules.begin(), rules.end(), [](const auto &rule) { return rule.entry == 314; });
    ASSERT_NE(mask, rules.end());
    EXPECT_EQ(mask->in_port, 14u);
    EXPECT_EQ(mask->blocked[0], kBlocked ^ 1U << 18) << "all but the peer";
    for (size_t word = 1; word < 8; ++word)
        EXPECT_EQ(mask->blocked[word], kBlocked) << word;
    for (const char *call : {"qualify_InPort_get", "qualify_InPorts_get", "qualify_VlanFormat_get",
                             "qualify_EtherType_get", "qualify_DstMac_get", "action_get", "action_ports_get"}) {
        const std::string name = std::string("bcm_field_") + call;
        ctl("switch fail " + name + " -9");
        LogWatch log;
        size = 1000;
        EXPECT_EQ(ddal_ext_switch_rules(rules.data(), &size), -1001) << call;
        const std::vector<std::string> lines = log.take();
        ASSERT_EQ(lines.size(), 2u) << call;
        EXPECT_NE(lines[0].find(name + " failed on field entry 1: Operation timed out"), std::string::npos) << lines[0];
        EXPECT_EQ(lines[1], "3 ddal_ext_switch_rules: Reading the field rules failed");
    }
    ctl("switch port-sets off");
    size = 1000;
    EXPECT_EQ(ddal_ext_switch_rules(rules.data(), &size), 0) << "a device without the qualifier for several ports";
    ctl("switch port-sets on");
    EXPECT_EQ(ddal_eth_switch_remove_tunneling(kSwitch, 14, 18), 0);
}
