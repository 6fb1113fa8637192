// The external multiport switch: each operation, both ways to its bus, both kinds of address, and every failing access.
#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <unistd.h>

#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/sweep.h"
#include "tools/ddalctl.h"

using namespace testing_board;

namespace {

constexpr uint32_t kPort = 3;
constexpr const char *kStore = "/flash/config/sysinfo";
constexpr int kNegotiationSeconds = 2;

// Puts the switch at an address, and leads the library there.
void place(int way, int address)
{
    ctl("multiport strap " + std::to_string(address));
    put_file(kStore, "0.6320.1 = " + std::to_string(way) + "\n0.6320.2 = " + std::to_string(address) + "\n");
}

// Returns the changes of PHY registers since the last call, without those of the page.
std::string writes()
{
    std::string text;
    const std::string log = ctl("multiport log");
    const std::regex write("write ([0-9.]+) = (0x[0-9a-f]+)");
    for (std::sregex_iterator at(log.begin(), log.end(), write), end; at != end; ++at)
        if ((*at)[1] != "0.22")
            text += " " + (*at)[1].str() + "=" + (*at)[2].str();
    return text;
}

// Returns result and changed registers of a setter, then what `look` finds.
std::string did(int result, std::string (*look)() = nullptr)
{
    const std::string text = std::to_string(result) + writes();
    return look ? text + ", " + look() : text;
}

template <typename Value>
std::string got(int (*operation)(uint32_t, Value *))
{
    Value value = 77;
    const int result = operation(kPort, &value);
    return std::to_string(result) + " " + std::to_string(static_cast<int32_t>(value));
}

std::string advertised(uint32_t speed, uint32_t mode)
{
    uint16_t enabled = 77;
    const int result = ex_switch_phy_copper_get_config_advert(kPort, speed, mode, &enabled);
    return std::to_string(result) + " " + std::to_string(enabled);
}

std::string status()
{
    ddal_phy_copper_status now{9, 9, 9};
    const int result = ex_switch_phy_copper_get_status(kPort, &now);
    return std::to_string(result) + " " + std::to_string(now.link) + " " +
           std::to_string(static_cast<int32_t>(now.speed)) + " " + std::to_string(static_cast<int32_t>(now.duplex));
}

std::string pauses()
{
    uint16_t pause = 9, asymmetric = 9;
    const int result = ex_switch_phy_copper_get_config_advert_pause_frames(kPort, &pause, &asymmetric);
    return std::to_string(result) + " " + std::to_string(pause) + " " + std::to_string(asymmetric);
}

std::string phy_line()
{
    const std::string all = ctl("multiport show");
    const size_t at = all.find("\n3 ") + 1;
    const std::string line = all.substr(at, all.find('\n', at) - at);
    return line.substr(line.find(" cable") + 1);
}

std::string crossover()
{
    const std::string line = phy_line();
    return line.substr(line.rfind("crossover"));
}

struct Step {
    const char *what;
    std::function<std::string()> run;
    const char *outcome;
};

const std::vector<Step> kSteps = {
    {"is fitted", [] { return std::to_string(is_BH3_type_multiport_switch()); }, "0"},
    {"a link from the start", status, "0 1 1000 1"},
    {"speed waits for manual mode", [] { return did(ex_switch_phy_set_speed(kPort, 100)); }, "0 0.0=0x3100"},
    {"", [] { return got(ex_switch_phy_get_speed); }, "0 1000"},
    {"manual", [] { return did(ex_switch_phy_set_autoneg(kPort, 2)); }, "0 0.0=0x2100 0.0=0xa100"},
    {"", [] { return got(ex_switch_phy_get_autoneg) + ", " + got(ex_switch_phy_get_speed); }, "0 0, 0 100"},
    {"half", [] { return did(ex_switch_phy_set_duplex_mode(kPort, 0)); }, "0 0.0=0x2000 0.0=0xa000"},
    {"", [] { return got(ex_switch_phy_get_duplex_mode) + ", " + status(); }, "0 0, 0 1 100 0"},
    {"loopback at 100", [] { return did(ex_switch_phy_set_copper_loopback(kPort, 1)); },
     "0 2.21=0x2000 0.0=0xa000 0.0=0x6000"},
    {"", phy_line, "cable 1000 link 100 half page 0 crossover 3 loops"},
    {"again", [] { return did(ex_switch_phy_set_copper_loopback(kPort, 1)); }, "0"},
    {"", [] { return got(ex_switch_phy_get_copper_loopback); }, "0 1"},
    {"ends", [] { return did(ex_switch_phy_set_copper_loopback(kPort, 0)); }, "0 0.0=0x2000"},
    {"10", [] { return did(ex_switch_phy_set_speed(kPort, 10)); }, "0 0.0=0x0000 0.0=0x8000"},
    {"1000", [] { return did(ex_switch_phy_set_speed(kPort, 1000)); }, "0 0.0=0x0040 0.0=0x8040"},
    {"full", [] { return did(ex_switch_phy_set_duplex_mode(kPort, 1)); }, "0 0.0=0x0140 0.0=0x8140"},
    {"automatic, without a partner",
     [] {
         ctl("multiport plug 3 0");
         return did(ex_switch_phy_set_autoneg(kPort, 1));
     },
     "0 0.0=0x1340"},
    {"no result", [] { return got(ex_switch_phy_get_speed) + ", " + got(ex_switch_phy_get_duplex_mode); },
     "0 -1, 0 -1"},
    {"loopback at 1000", [] { return did(ex_switch_phy_set_copper_loopback(kPort, 1)); },
     "0 2.21=0x0040 0.0=0x9140 0.0=0x5140"},
    {"loops after the wait", [] { return std::to_string(phy_line().ends_with(" loops")); }, "1"},
    {"", [] { return did(ex_switch_phy_set_copper_loopback(kPort, 0)); }, "0 0.0=0x1140"},
    {"a slow partner",
     [] {
         ctl("multiport plug 3 100");
         sleep(kNegotiationSeconds);
         return status();
     },
     "0 1 100 1"},
    {"no partner",
     [] {
         ctl("multiport plug 3 0");
         return status();
     },
     "0 0 -1 -1"},
    {"back",
     [] {
         ctl("multiport plug 3 1000");
         sleep(kNegotiationSeconds);
         return status();
     },
     "0 1 1000 1"},
    {"1000 full goes", [] { return did(ex_switch_phy_copper_set_config_advert(kPort, 1000, 1, 0)); },
     "0 0.9=0x0100 0.0=0x1340"},
    {"", [] { return advertised(1000, 1); }, "0 0"},
    {"", [] { return advertised(1000, 0); }, "0 1"},
    {"100 half goes", [] { return did(ex_switch_phy_copper_set_config_advert(kPort, 100, 0, 0)); },
     "0 0.4=0x0161 0.0=0x1340"},
    {"half is left",
     [] {
         sleep(kNegotiationSeconds);
         return status();
     },
     "0 1 1000 0"},
    {"", [] { return did(ex_switch_phy_copper_set_config_advert(kPort, 1000, 1, 1)); }, "0 0.9=0x0300 0.0=0x1340"},
    {"", [] { return did(ex_switch_phy_copper_set_config_advert(kPort, 100, 0, 1)); }, "0 0.4=0x01e1 0.0=0x1340"},
    {"pause", [] { return did(ex_switch_phy_copper_set_config_advert_pause_frames(kPort, 1, 0), pauses); },
     "0 0.4=0x05e1 0.0=0x1340, 0 1 0"},
    {"both", [] { return did(ex_switch_phy_copper_set_config_advert_pause_frames(kPort, 1, 1), pauses); },
     "0 0.4=0x09e1 0.0=0x1340, 0 0 1"},
    {"none", [] { return did(ex_switch_phy_copper_set_config_advert_pause_frames(kPort, 0, 0), pauses); },
     "0 0.4=0x01e1 0.0=0x1340, 0 0 0"},
    {"crossed", [] { return did(ex_switch_phy_copper_set_crossover_mode(kPort, 1), crossover); },
     "0 0.16=0x0020 0.0=0x9140, crossover 1"},
    {"", [] { return got(ex_switch_phy_copper_get_crossover_mode); }, "0 1"},
    {"straight", [] { return did(ex_switch_phy_copper_set_crossover_mode(kPort, 0)); }, "0 0.16=0x0000 0.0=0x9140"},
    {"automatic", [] { return did(ex_switch_phy_copper_set_crossover_mode(kPort, 2)); }, "0 0.16=0x0060 0.0=0x9140"},
    {"down", [] { return did(ex_switch_phy_copper_power(kPort, 0), status); }, "0 0.0=0x1940, 0 0 -1 -1"},
    {"up", [] { return did(ex_switch_phy_copper_power(kPort, 1)); }, "0 0.0=0x1140"},
    {"reset", [] { return did(ex_switch_phy_copper_reset(kPort)); }, "0 0.0=0x9140"},
    {"restart", [] { return did(ex_switch_phy_copper_restart_autoneg(kPort)); }, "0 0.0=0x1340"},
};

// Brings the PHY of kPort back to its first settings.
void start_over()
{
    ctl("multiport plug 3 1000");
    sleep(kNegotiationSeconds);
    ctl("multiport log");
}

struct Bus {
    int way, address;
};
class ByEachWay : public testing::TestWithParam<Bus> {};
INSTANTIATE_TEST_SUITE_P(Bus, ByEachWay, testing::Values(Bus{1, 0}, Bus{1, 2}, Bus{2, 0}, Bus{2, 14}),
                         [](const auto &each) {
                             return std::string(each.param.way == 1 ? "nodes" : "interface") +
                                    std::to_string(each.param.address);
                         });

} // namespace

TEST_P(ByEachWay, EveryOperationDoesWhatTheRegistersSay)
{
    const KeptFile store(kStore);
    place(GetParam().way, GetParam().address);
    start_over();
    const auto outcomes = in_child([] {
        LogWatch log;
        std::vector<std::string> lines;
        for (const Step &step : kSteps)
            lines.push_back(step.run());
        for (const std::string &line : log.take())
            lines.push_back(line);
        return lines;
    });
    ASSERT_EQ(outcomes.size(), kSteps.size());
    for (size_t i = 0; i < kSteps.size(); i++)
        EXPECT_EQ(outcomes[i], kSteps[i].outcome) << "step " << i << " " << kSteps[i].what;
    ctl("multiport strap 2");
}

TEST_P(ByEachWay, PortsShowStateCountersAndMap)
{
    const KeptFile store(kStore);
    place(GetParam().way, GetParam().address);
    for (const char *line : {"plug 5 100", "plug 4 0", "count 6 0 7", "count 6 1 2", "count 6 29 11", "count 6 4 5",
                             "set 6 16 3", "set 6 17 1", "set 6 18 8", "set 6 19 9"})
        ctl(std::string("multiport ") + line);
    EXPECT_EQ(in_child([]() -> std::string {
                  std::string text;
                  for (const uint32_t port : {4u, 5u, 6u}) {
                      ddal_ext_multiport_status s{};
                      const int result = ddal_ext_multiport_get_port_status(port, &s);
                      for (const uint32_t word :
                           {static_cast<uint32_t>(result), s.link, s.speed, s.duplex, s.pause, s.phy, s.mode, s.state})
                          text += std::to_string(static_cast<int32_t>(word)) + " ";
                      text += "\n";
                  }
                  ddal_ext_multiport_counters c{};
                  text += std::to_string(ddal_ext_multiport_get_port_counters(6, &c));
                  for (const uint64_t value :
                       {c.in_good_octets, c.in_fcs_errors, c.in_unicasts, c.in_discards, c.in_filtered, c.out_filtered})
                      text += " " + std::to_string(value);
                  uint32_t map = 0;
                  text += "\n" + std::to_string(ddal_ext_multiport_set_port_vlan_map(0, 0x60));
                  text += " " + std::to_string(ddal_ext_multiport_get_port_vlan_map(0, &map));
                  return text + " " + std::to_string(map) + " " + ctl("multiport get 0 6");
              }),
              "0 0 -1 -1 0 1 0 3 \n0 1 100 1 0 0 9 3 \n0 1 1000 1 0 0 9 3 \n"
              "0 8589934599 11 5 65539 8 9\n0 0 96 0x0060\n");
    ctl("multiport plug 4 1000");
    ctl("multiport strap 2");
}

TEST(Multiport, WrongArgumentsAreRefusedWithoutAnAccess)
{
    uint32_t value = 0;
    const struct {
        std::function<int()> call;
        int result;
        const char *line;
    } cases[] = {
        {[&] { return ex_switch_phy_get_autoneg(2, &value); }, -EINVAL,
         "3 ex_switch_phy_get_autoneg: port 2 of the multiport switch is without a PHY"},
        {[] { return ex_switch_phy_copper_reset(5); }, -EINVAL,
         "3 ex_switch_phy_copper_reset: port 5 of the multiport switch is without a PHY"},
        {[] { return ex_switch_phy_get_speed(3, nullptr); }, -1001, "3 ex_switch_phy_get_speed: speed is NULL"},
        {[] { return ex_switch_phy_set_speed(3, 2500); }, -EINVAL, "3 ex_switch_phy_set_speed: wrong speed value"},
        {[] { return ex_switch_phy_set_duplex_mode(3, 2); }, -EINVAL,
         "3 ex_switch_phy_set_duplex_mode: wrong mode value"},
        {[] { return ex_switch_phy_copper_set_config_advert(3, 100, 1, 2); }, -EINVAL,
         "3 ex_switch_phy_copper_set_config_advert: wrong enable value"},
        {[] { return ex_switch_phy_copper_set_crossover_mode(3, 3); }, -EINVAL,
         "3 ex_switch_phy_copper_set_crossover_mode: wrong mode value"},
        {[] { return ex_switch_phy_set_copper_loopback(3, 2); }, -EINVAL,
         "3 ex_switch_phy_set_copper_loopback: wrong state value"},
        {[] { return ex_switch_phy_copper_power(3, 2); }, -EINVAL, "3 ex_switch_phy_copper_power: wrong state value"},
        {[&] { return ddal_ext_multiport_get_port_vlan_map(7, &value); }, -EINVAL,
         "3 ddal_ext_multiport_get_port_vlan_map: port 7 is not on the multiport switch"},
        {[] { return ddal_ext_multiport_set_port_vlan_map(0, 0x80); }, -EINVAL,
         "3 ddal_ext_multiport_set_port_vlan_map: ports 0x80 are not all on the multiport switch"},
    };
    for (const auto &each : cases) {
        Fault access("open:/run/*");
        EXPECT_EQ(outcome_in_child(each.call), (std::vector<std::string>{std::to_string(each.result), each.line}));
        EXPECT_EQ(access.seen(), 0u) << each.line;
    }
}

// The first call of a process finds the switch.
TEST(Multiport, IsRecognisedByItsIdentifierOrNot)
{
    const KeptFile store(kStore);
    const std::string op = "3 ex_switch_phy_copper_reset: ", known = "0.6320.2 = 2\n";
    const std::string no_answer = "can't read register 3 of MDIO device 0x13: ";
    const struct {
        const char *what;
        std::string store;
        std::vector<const char *> before;
        int fitted, result;
        std::string line; // of both operations, behind their names; of the second alone if the board is not known
    } cases[] = {
        {"88E6320", known, {"identifier 0x1150"}, 0, 0, ""},
        {"88E6321, another revision", known, {"identifier 0x310f"}, 0, 0, ""},
        {"another chip",
         known,
         {"identifier 0x1210"},
         -1,
         -1001,
         "not a multiport switch of this board: identifier 0x1210"},
        {"not fitted",
         known,
         {"fitted off"},
         -1,
         -1001,
         "can't read register 0 of MDIO device 0x02: Input/output error"},
        {"stuck", known, {"jam bus on"}, -1, -1001, "can't use register 0 of MDIO device 0x02: Connection timed out"},
        {"wrong address in the store",
         "0.6320.2 = 3\n",
         {},
         -1,
         -1001,
         "wrong address of the multiport switch in the store: 3"},
        {"no interface", "0.6320.1 = 2\n0.6320.3 = 1\n", {}, -1, -1001, no_answer + "Operation not supported"},
        {"another interface", "0.6320.1 = 2\n0.6320.3 = 1\n0.6320.2 = 2\n", {"owner eth1"}, 0, 0, ""},
        {"an empty store, alone on its bus", "", {"strap 0"}, 0, 0, ""},
        {"an empty store, not fitted", "", {"fitted off"}, -1, -ENOSYS, no_answer + "Input/output error"},
        {"an empty store, another chip",
         "",
         {"strap 0", "identifier 0x1210"},
         -1,
         -ENOSYS,
         "not a multiport switch of this board: identifier 0x1210"},
    };
    for (const auto &each : cases) {
        put_file(kStore, each.store);
        for (const char *line : each.before)
            ctl(std::string("multiport ") + line);
        std::vector<std::string> first{std::to_string(each.fitted)}, second{std::to_string(each.result)};
        if (!each.line.empty() && !each.store.empty())
            first.push_back("3 is_BH3_type_multiport_switch: " + each.line);
        if (!each.line.empty())
            second.push_back(op + each.line);
        EXPECT_EQ(outcome_in_child([] { return is_BH3_type_multiport_switch(); }), first) << each.what;
        EXPECT_EQ(outcome_in_child([] { return ex_switch_phy_copper_reset(kPort); }), second) << each.what;
        for (const char *line : {"fitted on", "identifier 0x3101", "strap 2", "owner eth3", "jam bus off"})
            ctl(std::string("multiport ") + line);
    }
}

TEST(Multiport, SurvivesEveryFailure)
{
    const KeptFile store(kStore);
    uint32_t value = 0;
    ddal_ext_multiport_counters counters{};
    const struct {
        const char *name;
        std::function<long()> call;
        bool everywhere = false; // also where each access takes five of the bus
    } cases[] = {
        {"ex_switch_phy_get_speed", [&] { return ex_switch_phy_get_speed(kPort, &value); }, true},
        {"ex_switch_phy_set_duplex_mode", [] { return ex_switch_phy_set_duplex_mode(kPort, 1); }},
        {"ex_switch_phy_copper_set_config_advert",
         [] { return ex_switch_phy_copper_set_config_advert(kPort, 10, 1, 1); }},
        {"ex_switch_phy_set_copper_loopback", // at 100 Mb/s: uses two pages
         [] {
             const int off = ex_switch_phy_set_copper_loopback(kPort, 0);
             return off != 0 ? off : ex_switch_phy_set_copper_loopback(kPort, 1);
         }},
        {"ddal_ext_multiport_get_port_counters", [&] { return ddal_ext_multiport_get_port_counters(0, &counters); }},
        {"ddal_ext_multiport_set_port_vlan_map", [] { return ddal_ext_multiport_set_port_vlan_map(0, 0x60); }, true},
    };
    in_child([] { return std::to_string(ex_switch_phy_set_speed(kPort, 100) + ex_switch_phy_set_autoneg(kPort, 0)); });
    for (const int way : {1, 2}) {
        place(way, way == 1 ? 2 : 0);
        for (const auto &each : cases) {
            if (way == 1 && !each.everywhere)
                continue;
            const std::string op = std::string("3 ") + each.name + ": ";
            const auto no_lock = fails(-1001, {op + "can't lock /run/ddal-multiport.lock: %m"});
            const auto unlock = changes_nothing();
            const auto any_access = fails(-1001, {op + "can't *"});
            EXPECT_EQ(in_child([&]() -> std::string {
                          each.call(); // recognises the switch
                          Sweep(each.name, each.call)
                              .when("open:/run/*", no_lock)
                              .when("flock/ENOLCK", in_turn({no_lock, unlock, no_lock, unlock, no_lock, unlock}))
                              .when("flock/EINTR", changes_nothing())
                              .when("pread/EINTR", changes_nothing())
                              .when("pwrite/EINTR", changes_nothing())
                              .when("ioctl/EINTR", changes_nothing())
                              .when("pread/short", any_access)
                              .when("pread/end", any_access)
                              .when("pwrite/short", any_access)
                              .when("pwrite/end", any_access)
                              .when("open", any_access)
                              .when("pread", any_access)
                              .when("pwrite", any_access)
                              .when("socket", any_access)
                              .when("ioctl", any_access)
                              .run();
                          return testing::Test::HasFailure() ? "failed" : "";
                      }),
                      "")
                << each.name << " by way " << way;
        }
    }
    in_child([] {
        return std::to_string(ex_switch_phy_set_copper_loopback(kPort, 0) + ex_switch_phy_set_speed(kPort, 1000) +
                              ex_switch_phy_set_autoneg(kPort, 1));
    });
    ctl("multiport strap 2");
}

TEST(Multiport, GivesUpOnACommandThatDoesNotEnd)
{
    ddal_ext_multiport_counters counters{};
    const std::function<long()> count = [&] { return ddal_ext_multiport_get_port_counters(0, &counters); };
    const std::string op = "3 ddal_ext_multiport_get_port_counters: ";
    ctl("multiport jam counters on");
    EXPECT_EQ(outcome_in_child(count),
              (std::vector<std::string>{"-1001",
                                        op + "can't wait for register 29 of MDIO device 0x1b: Connection timed out"}));
    ctl("multiport jam counters off");
    ctl("multiport jam phy on");
    EXPECT_EQ(outcome_in_child([] { return ex_switch_phy_copper_reset(kPort); }),
              (std::vector<std::string>{"-1001", "3 ex_switch_phy_copper_reset: can't wait for register 24 of MDIO "
                                                 "device 0x1c: Connection timed out"}));
    ctl("multiport jam phy off");
    Fault late("pread nth=300 errno=EIO");
    EXPECT_EQ(outcome_in_child(count).size(), 2u) << "one line for an access in the middle";
    EXPECT_EQ(late.fired(), 1u);
}

TEST(Multiport, ShowsFromTheShell)
{
    ctl("multiport count 6 0 700");
    ctl("multiport count 6 4 7");
    EXPECT_EQ(ddalctl("switch set-ports 1 5,6").status, 0);
    const Json port = ddalctl_json("switch show 1");
    EXPECT_EQ(port.at("sends-to"), Json({5, 6}));
    EXPECT_EQ(port.at("state"), "forwarding");
    EXPECT_EQ(port.at("link"), "down");
    const Json ports = ddalctl_json("switch ports").at("ports");
    EXPECT_EQ(ports.size(), 7u);
    EXPECT_EQ(ports.at(6).at("speed"), 1000);
    EXPECT_EQ(ports.at(6).at("rx-packets"), 7);
    EXPECT_EQ(ports.at(4).at("phy-devices"), Json({2, 3, 4}));
    EXPECT_EQ(ddalctl_json("switch counters 6").at("rx-octets"), 700);
    EXPECT_THAT(ddalctl("switch counters 7").err, testing::HasSubstr("outside 0 to 6"));
}
