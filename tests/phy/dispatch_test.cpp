// Board type, PHY device, interface number, fitting of the ports and backhaul type decide which back end serves a call.
#include <cerrno>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>

#include <ddal/phy.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"

using namespace testing_board;

namespace {

constexpr const char *kIdentity = "/proc/device-tree/board-identity/";
constexpr uint32_t kNone = UINT32_MAX; // the cell, or the item in the store, is missing

// The settings of a case; by default the board lets the call through.
struct Setting {
    uint32_t board = 7;
    uint32_t dev_id = 0;      // of every interface
    uint32_t backhaul_1 = 1;  // cells: 0x1000,
    uint32_t backhaul_2 = 1;  // 0x1000
    uint32_t backhaul_3 = 4;  // and 0x40
    uint32_t cached_type = 0; // item 0.13.18 of the store
    bool multiport = false;   // an external multiport switch is fitted
    uint32_t value = 249;     // item 0.42.(31 + dev_id)
};

void put_cell(const std::string &name, uint32_t value)
{
    if (value == kNone)
        std::filesystem::remove(kIdentity + name);
    else
        put_cells(kIdentity + name, {value});
}

void apply(const Setting &setting)
{
    put_cell("board-type", setting.board - 1);
    put_cell("user-defined-a/backhaul-1-type", setting.backhaul_1);
    put_cell("user-defined-a/backhaul-2-type", setting.backhaul_2);
    put_cell("user-defined-a/backhaul-3-type", setting.backhaul_3);
    for (int i = 0; i < 4; ++i)
        put_file("/sys/class/net/eth" + std::to_string(i) + "/dev_id", std::to_string(setting.dev_id) + "\n");
    std::string store;
    if (setting.cached_type != kNone)
        store += "0.13.18 = " + std::to_string(setting.cached_type) + "\n";
    if (setting.value != kNone)
        store += "0.42." + std::to_string(31 + setting.dev_id) + " = " + std::to_string(setting.value) + "\n";
    put_file("/flash/config/sysinfo", store);
    ctl(std::string("multiport fitted ") + (setting.multiport ? "on" : "off"));
}

// Returns the back end that has done something since the last call.
std::string served_by()
{
    std::string text;
    std::istringstream calls(ctl("switch calls"));
    for (std::string line; std::getline(calls, line);)
        if (line.rfind("bcm_port_", 0) == 0 && line.rfind("bcm_port_gport_get", 0) != 0 && text.empty())
            text = line;
    if (const std::string external = ctl("multiport log"); !external.empty()) // "phy 3 write ..."
        text += "multiport " + external.substr(4, 1);
    std::istringstream ids(ctl("phy list"));
    for (std::string id; std::getline(ids, id);)
        if (!ctl("phy " + id + " log").empty())
            text += "phy " + id;
    return text;
}

// Returns result and back end of a call, or result and log of a refused call.
std::string outcome_of(const Setting &setting, const std::function<int()> &call)
{
    return in_child([&] {
        apply(setting);
        served_by();
        ctl("interfaces set eth0 speed 10");
        ctl("interfaces set eth1 speed 10");
        ctl("interfaces set eth3 speed 10");
        const std::string before = ctl("interfaces show");
        LogWatch log;
        const int result = call();
        std::string text = std::to_string(result);
        if (result != 0) {
            for (const std::string &line : log.take())
                text += "|" + line.substr(2);
            return text;
        }
        text += " " + served_by();
        std::istringstream now(ctl("interfaces show"));
        std::istringstream then(before);
        for (std::string a, b; std::getline(now, a) && std::getline(then, b);)
            if (a != b)
                text += a.substr(0, a.find(' '));
        return text;
    });
}

struct Case {
    Case(const char *name, const Setting &where, uint32_t dev, std::string text)
        : what(name), setting(where), phy_dev(dev), outcome(std::move(text))
    {
    }
    const char *what;
    Setting setting;
    uint32_t phy_dev;
    std::string outcome;
};

template <size_t N>
void check(const Case (&cases)[N], const std::function<int(uint32_t phy_dev)> &call)
{
    for (const Case &each : cases)
        EXPECT_EQ(outcome_of(each.setting, [&] { return call(each.phy_dev); }), each.outcome) << each.what;
}

constexpr const char *kNoDevice = "-1001|ddal_phy_iface2ifname: Unsupported interface"
                                  "|find_name_and_dev_id: couldn't find interface name for interface: 0x5"
                                  "|find_interface: couldn't find name & dev_id for interface: 0x5"
                                  "|ddal_phy_set_speed: couldn't find name & dev_id for phy dev: 5";

} // namespace

// The rule by the fitting of backhaul port 3, on an operation that uses ethtool.
TEST(Dispatch, ByFitting)
{
    const Case kCases[] = {
        {"board 5 has no PHYs", {.board = 5}, 0, "-38"},
        {"board 5, even for no device", {.board = 5}, 5, "-38"},
        {"direct, device 0", {}, 0, "0 eth1"},
        {"direct, device 1", {}, 1, "0 eth0"},
        {"direct, device 2", {}, 2, "0 eth3"},
        {"direct, device 4", {}, 4, "0 eth3"},
        {"no device 5", {}, 5, kNoDevice},
        {"device 3, fitted with copper", {}, 3, "0 eth3"},
        {"device 3, fitted with a switch port", {.backhaul_3 = 2, .multiport = true}, 3, "0 multiport 3"},
        Case("device 3, fitted with something else", {.backhaul_3 = 6}, 3,
             "-1001|ddal_phy_set_speed: Invalid backhaul3 type (0x60)"),
        Case("device 3, fitting unknown", {.backhaul_3 = kNone}, 3,
             "-1001|ddal_common_read_file: error open /proc/device-tree/board-identity/user-defined-a/backhaul-3-type: "
             "No such file or directory|ddal_phy_set_speed: Couldn't retrieve BH3 type"),
        {"the fitting is device 3's alone", {.backhaul_3 = 2}, 2, "0 eth3"},
        {"the cached type does not count here", {.cached_type = 2}, 3, "0 eth3"},
        {"dev_id 3 without a multiport switch", {.dev_id = 3}, 0, "0 eth1"},
        {"dev_id 3 with one", {.dev_id = 3, .multiport = true}, 0, "0 multiport 4"},
        {"dev_id 2 with one", {.dev_id = 2, .multiport = true}, 0, "0 eth1"},
        Case("device 3 on dev_id 3: the switch port comes first", {.dev_id = 3, .backhaul_3 = 2, .multiport = true}, 3,
             "0 multiport 3"),
        {"device 3 on dev_id 3, copper", {.dev_id = 3, .multiport = true}, 3, "0 multiport 4"},
        {"dev_id 4 is no reason to refuse ethtool", {.dev_id = 4, .multiport = true}, 1, "0 eth0"},
        {"board 4", {.board = 4}, 1, "0 eth0"},
        {"board 8", {.board = 8}, 1, "0 eth0"},
        {"MBO, device 0", {.board = 9}, 0, "0 bcm_port_phy_modify 0 1 2 0 32768 36864"},
        {"MBO, device 1", {.board = 9}, 1, "0 bcm_port_speed_set 0 18 100"},
        {"MBO, device 2", {.board = 9}, 2, "0 bcm_port_phy_modify 0 1 2 0 32768 36864"},
        {"MBO, device 3 of type 6", {.board = 9, .cached_type = 6}, 3, "0 bcm_port_phy_modify 0 0 2 0 32768 36864"},
        {"MBO, device 3 of type 7", {.board = 9, .cached_type = 7}, 3, "0 bcm_port_phy_modify 0 0 2 0 32768 36864"},
        Case("MBO, device 3 of another type", {.board = 9, .cached_type = 2}, 3,
             "-1001|mbo_board_association_set: invalid bh3 type for mbo: 2|ddal_phy_set_speed: MBO board set speed "
             "error: 3"),
        Case("MBO, device 3 of unknown type", {.board = 9, .cached_type = kNone}, 3,
             "-1001|get_cached_bh_type: ddal_sysinfo_get_uint() failed:-2|mbo_board_association_set: invalid bh3 type "
             "for mbo: 4294967295|ddal_phy_set_speed: MBO board set speed error: 3"),
        {"MBO, device 4", {.board = 9}, 4, "0 bcm_port_speed_set 0 21 100"},
        Case("MBO, no device 5", {.board = 9}, 5,
             "-1001|mbo_board_association_set: unsupported phy device 5|ddal_phy_set_speed: MBO board set speed error: "
             "5"),
        Case("MBO, whatever the interfaces are", {.board = 9, .dev_id = 3, .backhaul_3 = 2, .multiport = true}, 1,
             "0 bcm_port_speed_set 0 18 100"),
    };
    check(kCases, [](uint32_t phy_dev) { return ddal_phy_set_speed(phy_dev, 99, 100); });
}

// The rule by the cached type, and the fitting with copper, on an operation that uses the PHY's registers.
TEST(Dispatch, ByCachedTypeAndCopper)
{
    const Case kCases[] = {
        {"dev_id 0, copper", {}, 0, "0 phy 2090300.mdio:00"},
        Case("dev_id 0, copper of the other kind", {.backhaul_1 = 0}, 0,
             "-1001|is_interface_copper: unsupported bh type (0x0) for interface dev_id (0x0)|is_interface_copper: "
             "interface is not copper dev_id: 0x0"),
        Case("dev_id 0 on board 7 is backhaul 3", {.board = 7, .backhaul_1 = 9, .backhaul_3 = 6}, 0,
             "0 phy 2090300.mdio:00"),
        Case("dev_id 0 on board 8 is backhaul 3", {.board = 8, .backhaul_1 = 9, .backhaul_3 = 6}, 0,
             "0 phy 2090300.mdio:00"),
        {"dev_id 0 on board 6 is backhaul 1", {.board = 6, .backhaul_3 = 6}, 0, "0 phy 2090300.mdio:00"},
        Case("dev_id 0 on board 6, 0x60 from backhaul 1", {.board = 6, .backhaul_1 = 6}, 0,
             "-1001|is_interface_copper: unsupported bh type (0x6000) for interface dev_id (0x0)|is_interface_copper: "
             "interface is not copper dev_id: 0x0"),
        {"dev_id 1, copper", {.board = 6, .dev_id = 1}, 0, "0 phy 2090300.mdio:01"},
        Case("dev_id 1, fitting unknown", {.board = 6, .dev_id = 1, .backhaul_2 = kNone}, 0,
             "-1001|ddal_common_read_file: error open /proc/device-tree/board-identity/user-defined-a/backhaul-2-type: "
             "No such file or directory|is_interface_copper: get bh type failed for interface dev_id "
             "(0x1)|is_interface_copper: interface is not copper dev_id: 0x1"),
        Case("dev_id 2 is never copper", {.board = 6, .dev_id = 2}, 0,
             "-1001|is_interface_copper: non-copper interface dev_id (0x2)|is_interface_copper: interface is not "
             "copper dev_id: 0x2"),
        Case("dev_id 3 has no node", {.board = 6, .dev_id = 3}, 0,
             "-1001|get_phy_regs_filename: cannot match phy_regs node to interface dev_id 3"),
        {"dev_id 3 on board 4", {.board = 4, .dev_id = 3}, 0, "0 phy 0.1:01"},
        {"dev_id 3 on board 4, switch port", {.board = 4, .dev_id = 3, .backhaul_3 = 2}, 0, "0 phy 0.1:01"},
        {"dev_id 0 on board 4", {.board = 4}, 1, "0 phy 0.0:00"},
        {"dev_id 1 on board 4", {.board = 4, .dev_id = 1}, 1, "0 phy 0.0:01"},
        Case("dev_id 4", {.board = 6, .dev_id = 4}, 0,
             "-1001|is_interface_copper: non-copper interface dev_id (0x4)|is_interface_copper: interface is not "
             "copper dev_id: 0x4"),
        {"device 3 of type 2", {.board = 6, .cached_type = 2, .multiport = true}, 3, "0 multiport 3"},
        {"device 3 of type 0, whatever is fitted", {.board = 6, .backhaul_3 = 9}, 3, "0 phy 2090300.mdio:00"},
        {"the cached type is device 3's alone", {.board = 6, .cached_type = 2}, 2, "0 phy 2090300.mdio:00"},
        Case("dev_id 3 with a multiport switch", {.board = 6, .dev_id = 3, .multiport = true}, 2, "0 multiport 4"),
        {"board 5 ends where its registers are not", {.board = 5}, 0, "-38"},
        {"MBO, type 7 on device 3", {.board = 9, .cached_type = 7}, 3, "0 bcm_port_mdix_set 0 20 3"},
        {"MBO, type 6 on device 3: registers", {.board = 9, .cached_type = 6}, 3, "0 bcm_port_phy_get 0 0 2 16"},
        {"MBO, device 0: registers", {.board = 9, .cached_type = 7}, 0, "0 bcm_port_phy_get 0 1 2 16"},
        Case("MBO, device 1 is not copper", {.board = 9, .cached_type = 7}, 1,
             "-1001|is_interface_copper: phy dev interface is not copper: 0x1"),
        Case("MBO, device 4 is not copper", {.board = 9}, 4,
             "-1001|is_interface_copper: phy dev interface is not copper: 0x4"),
    };
    std::vector<Case> unchanged(std::begin(kCases), std::end(kCases));
    // The cases leave backhaul 3 at 0x40, which is not copper for dev_id 0 of boards 7 and 8. The plain case is
    // therefore board 6.
    for (Case &each : unchanged)
        if (each.setting.board == 7 && each.setting.backhaul_3 == 4)
            each.setting.board = 6;
    for (const Case &each : unchanged)
        EXPECT_EQ(outcome_of(each.setting, [&] { return ddal_phy_copper_set_crossover_mode(each.phy_dev, 1); }),
                  each.outcome)
            << each.what;
}

TEST(Dispatch, Registers)
{
    const Case kCases[] = {
        {"direct", {}, 0, "0 phy 2090300.mdio:00"},
        {"direct, whatever is fitted", {.backhaul_1 = 9, .backhaul_3 = 9}, 3, "0 phy 2090300.mdio:00"},
        {"board 5", {.board = 5}, 0, "-38"},
        Case("a port behind the multiport switch has no registers", {.dev_id = 3, .multiport = true}, 2,
             "-1001|get_phy_regs_filename: cannot match phy_regs node to interface dev_id 3"),
        {"MBO, copper", {.board = 9}, 0, "0 bcm_port_phy_get 0 1 2 6"},
        Case("MBO, fibre", {.board = 9}, 1,
             "-1001|ddal_bcm_read_ext_phy_register: port 18 is not copper (or direct phy access is "
             "disallowed)|ddal_phy_read: MBO board read PHY error: 1"),
    };
    check(kCases, [](uint32_t phy_dev) {
        uint16_t value = 0;
        return ddal_phy_copper_get_expansion_reg(phy_dev, &value);
    });
}

TEST(Dispatch, AFailingExternalSwitchIsLoggedForTheInterface)
{
    const std::string busy =
        "-1001|ex_switch_phy_set_autoneg: can't wait for register 24 of MDIO device 0x1c: Connection timed out";
    const Case kCases[] = {
        Case("dev_id 3", {.dev_id = 3, .multiport = true}, 0,
             busy + "|ddal_phy_set_autoneg: ex_switch_phy_set_autoneg failed for interface 0x0[eth1]"),
        {"device 3", {.backhaul_3 = 2, .multiport = true}, 3, busy},
    };
    ctl("multiport jam phy on");
    check(kCases, [](uint32_t phy_dev) { return ddal_phy_set_autoneg(phy_dev, 0, 1); });
    ctl("multiport jam phy off");
    EXPECT_EQ(outcome_of(kCases[0].setting, [] { return ddal_phy_set_speed(0, 0, 42); }),
              "-22|ex_switch_phy_set_speed: wrong speed value");
}

TEST(Association, ReportsPortsAndNames)
{
    const Case kCases[] = {
        {"direct", {.value = 249}, 0, "eth1 1 -1 0"},
        {"second port", {.dev_id = 1, .value = 250}, 1, "eth0 2 -1 1"},
        {"a value of 0 is port 3", {.dev_id = 2, .value = 0}, 2, "eth3 3 -1 2"},
        {"as is 251", {.value = 251}, 4, "eth3 3 -1 0"},
        {"and 253", {.value = 253}, 4, "eth3 3 -1 0"},
        {"fourth port", {.value = 252}, 4, "eth3 4 -1 0"},
        Case(
            "another value", {.value = 254}, 4,
            "-1001|bh_eth2bh_port: unsupported backhaul value: 254|ddal_phy_get_association: PHY dev 4 association get "
            "failure"),
        {"no value", {.value = kNone}, 4, "-1001|ddal_phy_get_association: PHY dev 4 association get failure"},
        Case("dev_id 4", {.dev_id = 4}, 0,
             "-1001|ifdev2soc: unsupported value of phy interface device id: 4|ddal_phy_get_association: PHY dev 0 "
             "association get failure"),
        {"device 3 of type 2", {.cached_type = 2, .value = 251}, 3, "eth3 3 3 0"},
        Case("device 3 of type 2 before the multiport switch", {.dev_id = 3, .cached_type = 2, .multiport = true}, 3,
             "eth3 1 3 3"),
        {"dev_id 3 behind a multiport switch", {.dev_id = 3, .multiport = true}, 1, "eth0 1 4 3"},
        {"MBO, device 0", {.board = 9}, 0, " 2 14 -1"},
        {"MBO, device 1", {.board = 9}, 1, " 1 18 -1"},
        {"MBO, device 2", {.board = 9}, 2, " 2 14 -1"},
        {"MBO, device 3 of type 6", {.board = 9, .cached_type = 6}, 3, " 3 16 -1"},
        {"MBO, device 3 of type 7", {.board = 9, .cached_type = 7}, 3, " 3 20 -1"},
        {"MBO, device 4", {.board = 9}, 4, " 4 21 -1"},
        {"MBO, device 5", {.board = 9}, 5, "-19|mbo_board_association_set: unsupported phy device 5"},
    };
    for (const Case &each : kCases) {
        const std::string outcome = in_child([&]() -> std::string {
            apply(each.setting);
            LogWatch log;
            ddal_phy_association found{};
            const int result = ddal_phy_get_association(each.phy_dev, &found);
            if (result == 0)
                return std::string(found.ifname) + " " + std::to_string(found.bh_port) + " " +
                       std::to_string(found.switch_port) + " " + std::to_string(found.dev_id);
            std::string text = std::to_string(result);
            for (const std::string &line : log.take())
                text += "|" + line.substr(2);
            return text;
        });
        EXPECT_EQ(outcome, each.outcome) << each.what;
    }
    EXPECT_EQ(ddal_phy_get_association(0, nullptr), -EINVAL);
}

TEST(Association, ReadsTheInterfaceNumberInAnyBase)
{
    for (const auto &[text, outcome] :
         {std::pair{"0x1\n", "1"}, {"1", "1"}, {"01\n", "1"}, {"x\n", "-1001"}, {"", "-1001"}})
        EXPECT_EQ(in_child([text = text] {
                      apply({.dev_id = 1});
                      put_file("/sys/class/net/eth1/dev_id", text);
                      ddal_phy_association found{};
                      const int result = ddal_phy_get_association(0, &found);
                      return std::to_string(result ? result : found.dev_id);
                  }),
                  outcome)
            << text;
}

// A failed read of the cached type is repeated; a good value is kept.
TEST(CachedType, IsReadUntilItIsKnown)
{
    EXPECT_EQ(in_child([] {
                  apply({.board = 9, .cached_type = kNone});
                  ddal_phy_association found{};
                  std::string text = std::to_string(ddal_phy_get_association(3, &found));
                  put_file("/flash/config/sysinfo", "0.13.18 = 6\n");
                  text += " " + std::to_string(ddal_phy_get_association(3, &found));
                  put_file("/flash/config/sysinfo", "0.13.18 = 7\n");
                  ddal_phy_get_association(3, &found);
                  return text + " " + std::to_string(found.switch_port);
              }),
              "-19 0 16");
}
