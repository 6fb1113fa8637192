// Effects of the operations on the registers of a direct PHY: device 1 of board type 8 is "eth0" with dev_id 0.
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
const std::string kPhy = "phy 2090300.mdio:00 ";
constexpr const char *kNode = "/sys/bus/mdio_bus/devices/2090300.mdio:00/phy_regs";

class DirectPhy : public testing::Test {
protected:
    void SetUp() override
    {
        ddal_unit_get_board(); // read here once, so that no sweep reads it
        ctl(kPhy + "maker marvell");
        put_file("/sys/class/cpld-usr/cpld-usr/bh_phy_reset", "0");
        ctl("interfaces set eth0 speed 1000");
        ctl(kPhy + "log");
    }
};

struct Row {
    const char *what;
    const char *before; // registers set first: "reg value [page]; ..."
    std::function<int()> call;
    const char *writes; // to the PHY, in order
    int result = 0;
};

void set_registers(const std::string &list)
{
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(';', at), list.size());
        ctl(kPhy + "set " + list.substr(at, end - at));
        at = end + 1;
    }
}

std::string writes_of_log()
{
    std::istringstream log(ctl(kPhy + "log"));
    std::string writes;
    for (std::string line; std::getline(log, line);)
        if (line.rfind("write ", 0) == 0)
            writes += (writes.empty() ? "" : "; ") + line.substr(6);
    return writes;
}

} // namespace

TEST_F(DirectPhy, OperationsChangeOnlyTheirBits)
{
    const Row kRows[] = {
        {"loopback on", "0 0x1140", [] { return ddal_phy_copper_loopback_enable(kDevice); }, "0.0 = 0x5140"},
        {"loopback off", "0 0x5140", [] { return ddal_phy_copper_loopback_disable(kDevice); }, "0.0 = 0x1140"},
        {"restart clears the register first", "0 0x1140", [] { return ddal_phy_copper_restart_autoneg(kDevice); },
         "0.0 = 0x0000; 0.0 = 0x1200"},
        {"reset", "0 0x1140", [] { return ddal_phy_copper_reset(kDevice); }, "0.0 = 0x8000"},
        {"crossover straight", "16 0xff7f", [] { return ddal_phy_copper_set_crossover_mode(kDevice, 0); },
         "0.16 = 0xff1f"},
        {"crossover crossed", "16 0xff1f", [] { return ddal_phy_copper_set_crossover_mode(kDevice, 1); },
         "0.16 = 0xff3f"},
        {"crossover automatic", "16 0", [] { return ddal_phy_copper_set_crossover_mode(kDevice, 2); }, "0.16 = 0x0060"},
        {"no crossover mode 3", "16 0", [] { return ddal_phy_copper_set_crossover_mode(kDevice, 3); }, "", -EINVAL},
        {"no pause", "4 0x0de1", [] { return ddal_phy_copper_set_config_advert_pause_frames(kDevice, 0, 0); },
         "0.4 = 0x01e1"},
        {"pause", "4 0x09e1", [] { return ddal_phy_copper_set_config_advert_pause_frames(kDevice, 1, 0); },
         "0.4 = 0x05e1"},
        {"asymmetric pause wins", "4 0x05e1",
         [] { return ddal_phy_copper_set_config_advert_pause_frames(kDevice, 1, 1); }, "0.4 = 0x09e1"},
        {"slave", "9 0x0f00; 0 0x1140", [] { return ddal_phy_copper_set_master_slave(kDevice, 0); },
         "0.9 = 0x1700; 0.0 = 0x9140"},
        {"master", "9 0x0300; 0 0x1140", [] { return ddal_phy_copper_set_master_slave(kDevice, 1); },
         "0.9 = 0x1b00; 0.0 = 0x9140"},
        {"automatic", "9 0x1b00; 0 0x1140", [] { return ddal_phy_copper_set_master_slave(kDevice, 2); },
         "0.9 = 0x0b00; 0.0 = 0x9140"},
        {"multi-port", "9 0x0300; 0 0x1140", [] { return ddal_phy_copper_set_master_slave(kDevice, 4); },
         "0.9 = 0x0700; 0.0 = 0x9140"},
        {"single-port", "9 0x0700; 0 0x1140", [] { return ddal_phy_copper_set_master_slave(kDevice, 8); },
         "0.9 = 0x0300; 0.0 = 0x9140"},
        {"no role 3", "9 0x0300", [] { return ddal_phy_copper_set_master_slave(kDevice, 3); }, "", -EINVAL},
        {"power down", "0 0x1140", [] { return ddal_phy_copper_power_down(kDevice); }, "0.0 = 0x1940"},
        {"power down when it is", "0 0x1940", [] { return ddal_phy_copper_power_down(kDevice); }, ""},
        {"power up", "0 0x1940", [] { return ddal_phy_copper_power_up(kDevice); }, "0.0 = 0x1140"},
        {"power up when it is", "0 0x1140", [] { return ddal_phy_copper_power_up(kDevice); }, ""},
        {"a page of its own", "16 0 3", [] { return ddal_phy_write(kDevice, 16, 3, 0xabcd); }, "3.16 = 0xabcd"},
    };
    for (const Row &row : kRows) {
        SetUp();
        set_registers(row.before);
        EXPECT_EQ(row.call(), row.result) << row.what;
        EXPECT_EQ(writes_of_log(), row.writes) << row.what;
    }
}

TEST_F(DirectPhy, GettersReadTheirBits)
{
    struct Case {
        const char *what;
        const char *before;
        std::function<int(std::string *)> call;
        int result;
        const char *values;
    };
    const auto two = [](uint32_t a, uint32_t b) { return std::to_string(a) + " " + std::to_string(b); };
    const auto loopback = [](std::string *text) {
        uint32_t state = 9;
        const int rc = ddal_phy_get_loopback_state(kDevice, &state);
        *text = std::to_string(state);
        return rc;
    };
    const auto crossover = [](std::string *text) {
        uint16_t mode = 9;
        const int rc = ddal_phy_copper_get_crossover_mode_configuration(kDevice, &mode);
        *text = std::to_string(mode);
        return rc;
    };
    const auto pause = [&](std::string *text) {
        uint16_t symmetric = 9, asymmetric = 9;
        const int rc = ddal_phy_copper_get_config_advert_pause_frames(kDevice, &symmetric, &asymmetric);
        *text = two(symmetric, asymmetric);
        return rc;
    };
    const auto role = [&](std::string *text) {
        uint16_t config = 9, port_type = 9;
        const int rc = ddal_phy_copper_get_master_slave_configuration(kDevice, &config, &port_type);
        *text = two(config, port_type);
        return rc;
    };
    const Case kCases[] = {
        {"loopback", "0 0x5140", loopback, 0, "1"},
        {"no loopback", "0 0xbfff", loopback, 0, "0"},
        {"straight", "16 0xff9f", crossover, 0, "0"},
        {"crossed", "16 0x0020", crossover, 0, "1"},
        {"automatic", "16 0x0060", crossover, 0, "2"},
        {"no such crossover", "16 0x0040", crossover, -1001, "9"},
        {"pause", "4 0x05e1", pause, 0, "1 0"},
        {"asymmetric pause", "4 0x0be1", pause, 0, "0 1"},
        {"slave, single-port", "9 0x1000", role, 0, "0 8"},
        {"master, multi-port", "9 0x1c00", role, 0, "1 4"},
        {"automatic role", "9 0x0b00", role, 0, "2 8"},
    };
    for (const Case &each : kCases) {
        ctl(kPhy + "set " + each.before);
        std::string values;
        EXPECT_EQ(each.call(&values), each.result) << each.what;
        EXPECT_EQ(values, each.values) << each.what;
    }

    // Reading the role writes register 6.
    set_registers("9 0x1800; 6 0x000f");
    ctl(kPhy + "log");
    uint16_t is_master = 9;
    EXPECT_EQ(ddal_phy_copper_get_master_slave(kDevice, &is_master), 0);
    EXPECT_EQ(is_master, 1);
    EXPECT_EQ(writes_of_log(), "0.6 = 0x000d");
    uint16_t expansion = 0;
    EXPECT_EQ(ddal_phy_copper_get_expansion_reg(kDevice, &expansion), 0);
    EXPECT_EQ(expansion, 0x000d);
}

TEST_F(DirectPhy, SettingTheRoleReappliesTheSettingsOfEth0)
{
    ctl("interfaces refuse eth0 on");
    EXPECT_EQ(ddal_phy_copper_set_master_slave(kDevice, 1), -1001) << "the kernel refuses, after the PHY was written";
    EXPECT_EQ(ctl(kPhy + "get 9"), "0x1b00\n");
    ctl("interfaces refuse eth0 off");
    EXPECT_EQ(ddal_phy_copper_set_master_slave(kDevice, 0), 0);
}

TEST_F(DirectPhy, PowerUpReleasesTheResetLineAndBringsTheInterfaceUp)
{
    put_file("/sys/class/cpld-usr/cpld-usr/bh_phy_reset", "1");
    uint16_t value = 0;
    EXPECT_EQ(ddal_phy_read(kDevice, 0, 0, &value), -1001) << "a PHY in reset does not answer";
    LogWatch log;
    {
        const Fault unreadable("read:/sys/class/cpld-usr/cpld-usr/bh_phy_reset errno=EIO");
        const Fault refused("write:/sys/class/cpld-usr/cpld-usr/bh_phy_reset errno=EPERM");
        EXPECT_EQ(ddal_phy_copper_power_up(kDevice), -1001);
    }
    const std::string line = "/sys/class/cpld-usr/cpld-usr/bh_phy_reset: ";
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 ddal_phy_file_read: cannot read " + line + "Input/output error",
                              "3 ddal_phy_file_write: cannot write " + line + "Operation not permitted",
                              "3 ddal_phy_copper_power_up: writing to cpld file failed",
                          }));
    EXPECT_EQ(ddal_phy_copper_power_up(kDevice), 0);
    EXPECT_EQ(file_content("/sys/class/cpld-usr/cpld-usr/bh_phy_reset"), "0\n");
    EXPECT_EQ(ddal_phy_read(kDevice, 0, 0, &value), 0);
    log.take();
    EXPECT_EQ(ddal_phy_copper_power_down(kDevice), 0);
    EXPECT_NE(ctl("interfaces show").find("eth0 down"), std::string::npos);
    EXPECT_EQ(ddal_phy_copper_power_up(kDevice), 0);
    EXPECT_NE(ctl("interfaces show").find("eth0 up"), std::string::npos);
    EXPECT_EQ(log.take(), (std::vector<std::string>{"4 ddal_ifconfig_down: bringing down interface eth0",
                                                    "4 ddal_ifconfig_up: bringing up interface eth0"}));
}

TEST_F(DirectPhy, RecoveredClockOfBothMakers)
{
    struct Case {
        uint16_t code;
        int atheros;
        int marvell;
    };
    const Case kCases[] = {{0, 0, -ENOSYS}, {1, 0, 0},       {2, 0, 0}, {3, 0, -ENOSYS},      {4, 0, -ENOSYS},
                           {5, 0, -ENOSYS}, {6, 0, -ENOSYS}, {7, 0, 0}, {8, -EINVAL, -ENOSYS}};
    for (const Case &each : kCases) {
        uint16_t code = 99;
        ctl(kPhy + "maker marvell");
        EXPECT_EQ(ddal_phy_set_rclk_freq(kDevice, each.code), each.marvell) << each.code;
        EXPECT_EQ(ddal_phy_get_rclk_freq(kDevice, &code), 0);
        EXPECT_EQ(code, each.marvell == 0 ? each.code : 2) << "2 is the initial value of the PHY";
        ctl(kPhy + "maker atheros");
        EXPECT_EQ(ddal_phy_set_rclk_freq(kDevice, each.code), each.atheros) << each.code;
        EXPECT_EQ(ddal_phy_get_rclk_freq(kDevice, &code), 0);
        EXPECT_EQ(code, each.atheros == 0 ? each.code : 2);
    }

    // The other bits of the register keep their values, and an unknown field has no code.
    ctl(kPhy + "maker marvell");
    ctl(kPhy + "set 16 0xe3f9 2");
    uint16_t code = 99;
    LogWatch log;
    EXPECT_EQ(ddal_phy_get_rclk_freq(kDevice, &code), -1001);
    EXPECT_EQ(ddal_phy_set_rclk_freq(kDevice, 7), 0);
    EXPECT_EQ(ctl(kPhy + "get 16 2"), "0xfff9\n");
    ctl(kPhy + "set 2 0x1234");
    EXPECT_EQ(ddal_phy_get_rclk_freq(kDevice, &code), -ENOSYS);
    EXPECT_EQ(log.take(), (std::vector<std::string>{
                              "3 ddal_phy_get_rclk_freq_marvel: inconsistient device config, freq not set",
                              "3 ddal_phy_get_rclk_freq: not supported phy type",
                          }));
    EXPECT_EQ(ddal_phy_get_rclk_freq(kDevice, nullptr), -1001);
}

// Devices 2 to 4 have a fixed clock when backhaul port 3 is a switch port.
TEST_F(DirectPhy, RecoveredClockOfASwitchPortIsFixed)
{
    const KeptFile fitting("/proc/device-tree/board-identity/user-defined-a/backhaul-3-type");
    put_cells("/proc/device-tree/board-identity/user-defined-a/backhaul-3-type", {2});
    for (uint32_t device = 2; device <= 4; ++device) {
        uint16_t code = 99;
        EXPECT_EQ(ddal_phy_get_rclk_freq(device, &code), 0);
        EXPECT_EQ(code, 2);
        EXPECT_EQ(ddal_phy_set_rclk_freq(device, 2), 0);
        EXPECT_EQ(ddal_phy_set_rclk_freq(device, 1), -1001);
    }
    EXPECT_EQ(ctl(kPhy + "log"), "");
}

TEST_F(DirectPhy, NullOutputsAreRefused)
{
    uint16_t value = 0;
    for (const auto &[result, line] : std::initializer_list<std::pair<std::function<int()>, const char *>>{
             {[] { return ddal_phy_read(kDevice, 0, 0, nullptr); }, "3 ddal_phy_read: data is NULL"},
             {[] { return ddal_phy_copper_get_expansion_reg(kDevice, nullptr); }, "3 ddal_phy_read: data is NULL"},
             {[] { return ddal_phy_get_autoneg(kDevice, 0, nullptr); }, "3 ddal_phy_get_autoneg: state is NULL"},
             {[] { return ddal_phy_get_duplex_mode(kDevice, 0, nullptr); }, "3 ddal_phy_get_duplex_mode: mode is NULL"},
             {[] { return ddal_phy_get_speed(kDevice, 0, nullptr); }, "3 ddal_phy_get_speed: speed is NULL"},
             {[] { return ddal_phy_get_loopback_state(kDevice, nullptr); },
              "3 ddal_phy_get_loopback_state: state is NULL"},
             {[] { return ddal_phy_copper_get_status(kDevice, nullptr); },
              "3 ddal_phy_copper_get_status: status is NULL"},
             {[] { return ddal_phy_copper_get_master_slave(kDevice, nullptr); },
              "3 ddal_phy_copper_get_master_slave: is_master is NULL"},
             {[&] { return ddal_phy_copper_get_config_advert_pause_frames(kDevice, &value, nullptr); },
              "3 ddal_phy_copper_get_config_advert_pause_frames: pause is NULL"},
         }) {
        LogWatch log;
        EXPECT_EQ(result(), -1001) << line;
        EXPECT_EQ(log.take(), std::vector<std::string>{line});
    }
}

// --- every call that fails ------------------------------------------------------------------------------------------

TEST_F(DirectPhy, ReadAndWriteSurviveEveryFailure)
{
    const std::string node = kNode;
    Sweep read("ddal_phy_read", [] {
        uint16_t value = 0;
        return ddal_phy_read(kDevice, 0, 0, &value);
    });
    with_lookup(read, "ddal_phy_read")
        .when("open:" + node, fails(-1001, {"3 ddal_phy_read_direct: Cannot open file " + node + " (%m)"}))
        .when("pread/EIO:" + node, fails(-1001, {"3 ddal_phy_read_direct: Unable to pread " + node + " (%m)"}))
        .when("pread/end:" + node, fails(-1001, {"3 ddal_phy_read_direct: Unable to pread " + node + " (Success)"}))
        .when("pread/short:" + node, fails(-1001, {"3 ddal_phy_read_direct: Unable to pread " + node + " (Success)"}))
        .when("close:" + node, fails(-1001, {"3 ddal_phy_read_direct: Unable to close " + node + " (%m)"}))
        .run();

    Sweep write("ddal_phy_write", [] { return ddal_phy_write(kDevice, 0, 0, 0x1140); });
    with_lookup(write, "ddal_phy_write")
        .when("open:" + node, fails(-1001, {"3 ddal_phy_write_direct: Cannot open file " + node + " (%m)"}))
        .when("pwrite/EIO:" + node, fails(-1001, {"3 ddal_phy_write_direct: Unable to pwrite " + node + " (%m)"}))
        .when("pwrite/end:" + node, fails(-1001, {"3 ddal_phy_write_direct: Unable to pwrite " + node + " (Success)"}))
        .when("pwrite/short:" + node,
              fails(-1001, {"3 ddal_phy_write_direct: Unable to pwrite " + node + " (Success)"}))
        .when("close:" + node, fails(-1001, {"3 ddal_phy_write_direct: Unable to close " + node + " (%m)"}))
        .run();
}
