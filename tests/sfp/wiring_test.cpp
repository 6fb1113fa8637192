// The files that serve each cage. The same program runs on a board of each wiring.
#include <gtest/gtest.h>

#include <ddal/unit.h>

#include "sfp/modules.h"
#include "support/board.h"

using namespace testing_board;

namespace {

struct Cage {
    uint32_t id;
    const char *id_memory;
    const char *diagnostics_memory;
    const char *lines;
};

constexpr Cage kTypes8And9[] = {
    {DDAL_SFP_1, "/sys/bus/i2c/devices/2-0050/eeprom", "/sys/bus/i2c/devices/2-0051/eeprom",
     "/sys/class/cpld-sfp-irq/cpld-sfp-irq-1"},
    {DDAL_SFP_2, "/sys/bus/i2c/devices/1-0050/eeprom", "/sys/bus/i2c/devices/1-0051/eeprom",
     "/sys/class/cpld-sfp-irq/cpld-sfp-irq-0"},
};
constexpr Cage kOtherTypes[] = {
    {DDAL_SFP_1, "/sys/class/cpld-usr/cpld-usr/bh_sfp_id", "/sys/class/cpld-usr/cpld-usr/bh_sfp_diag",
     "/sys/class/cpld-sfp-irq/cpld-sfp-irq-0"},
    {DDAL_SFP_2, "/sys/bus/i2c/devices/2-0050/eeprom", "/sys/bus/i2c/devices/2-0051/eeprom",
     "/sys/class/fpga_sfp/fpga_sfp/device"},
};

} // namespace

TEST(SfpWiring, FollowsTheBoardType)
{
    const int type = ddal_unit_get_board();
    ASSERT_TRUE(type == 5 || type == 8 || type == 9);
    plug(1, "sx-850nm");
    plug(2, "base-t-2500");
    for (const Cage &cage : type == 5 ? kOtherTypes : kTypes8And9) {
        const Fault id(std::string("open:") + cage.id_memory);
        const Fault diagnostics(std::string("open:") + cage.diagnostics_memory);
        const Fault tx_dis(std::string("open:") + cage.lines + "/tx_dis");
        const Fault presence(std::string("open:") + cage.lines + "/presence");
        uint32_t value = 0;
        EXPECT_EQ(ddal_sfp_bitrate_get(cage.id, &value), 0);
        EXPECT_EQ(value, cage.id == DDAL_SFP_1 ? 13u : 25u);
        EXPECT_EQ(id.seen(), 1u);
        EXPECT_EQ(ddal_sfp_memory_read(cage.id, DDAL_SFP_MEMORY_DIAGNOSTICS, 0, &value, 1), 0);
        EXPECT_EQ(ddal_sfp_memory_write(cage.id, DDAL_SFP_MEMORY_DIAGNOSTICS, 200, &value, 1), 0);
        EXPECT_EQ(diagnostics.seen(), 2u);
        EXPECT_EQ(ddal_sfp_ctrl_set(cage.id, DDAL_SFP_CTRL_TX_DISABLE, 1), 0);
        EXPECT_EQ(tx_dis.seen(), 1u);
        EXPECT_EQ(ddal_sfp_status_get(cage.id, DDAL_SFP_STATUS_PRESENCE, &value), 0);
        EXPECT_EQ(presence.seen(), 1u);
    }
}
