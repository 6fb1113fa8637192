// The model of the multiport switch, against the identifiers, reset values and bits of its registers.
#include <gtest/gtest.h>

#include "daemon/models/multiport_chip.h"

using namespace vboard;

namespace {

constexpr uint32_t kGlobal1 = 0x1B, kGlobal2 = 0x1C;

// A chip alone on its bus, with a clock that stands still.
struct Desk {
    int64_t now = 10'000'000'000;
    MultiportChip chip{[this] { return now; }};

    uint16_t read(uint32_t device, uint32_t reg) { return chip.read(device, reg).value_or(0xDEAD); }
    uint16_t finish(uint32_t device, uint32_t reg)
    {
        for (int i = 0; i < 20 && read(device, reg) & 0x8000; i++) {
        }
        return read(device, reg);
    }
    uint16_t phy_read(uint32_t port, uint32_t reg)
    {
        chip.write(kGlobal2, 0x18, static_cast<uint16_t>(0x9800 | port << 5 | reg));
        finish(kGlobal2, 0x18);
        return read(kGlobal2, 0x19);
    }
    void phy_write(uint32_t port, uint32_t reg, uint16_t value)
    {
        chip.write(kGlobal2, 0x19, value);
        chip.write(kGlobal2, 0x18, static_cast<uint16_t>(0x9400 | port << 5 | reg));
        finish(kGlobal2, 0x18);
    }
    uint32_t counter(uint32_t number)
    {
        chip.write(kGlobal1, 0x1D, static_cast<uint16_t>(0xCC00 | number));
        finish(kGlobal1, 0x1D);
        return static_cast<uint32_t>(read(kGlobal1, 0x1E)) << 16 | read(kGlobal1, 0x1F);
    }
};

} // namespace

TEST(MultiportChip, HasItsIdentifiersAndResetValues)
{
    Desk desk;
    for (uint32_t port = 0; port < 7; port++) {
        EXPECT_EQ(desk.read(0x10 + port, 3) >> 4, 0x310) << port;
        EXPECT_EQ(desk.read(0x10 + port, 15), 0x9100) << port;
        EXPECT_EQ(desk.read(0x10 + port, 1) & 3, 3) << "no speed is forced";
    }
    EXPECT_EQ(desk.read(0x17, 3), 0xFFFF) << "seven ports";
    EXPECT_EQ(desk.read(kGlobal1, 0x18), 0xFA41);
    EXPECT_EQ(desk.phy_read(3, 0) & 0x1140, 0x1140);
    for (const uint32_t port : {0u, 1u, 2u, 5u, 6u})
        EXPECT_EQ(desk.phy_read(port, 0), 0xFFFF) << "no PHY at port " << port;
    EXPECT_EQ(desk.read(3, 0), 0xFFFF) << "PHYs answer through global 2 alone";
    desk.chip.write(0x13, 3, 0);
    desk.chip.write(0x13, 0, 0);
    EXPECT_EQ(desk.read(0x13, 3), 0x3101) << "read only";
    EXPECT_EQ(desk.read(0x13, 0), 0x1E00) << "PHY found, link, full duplex, 1000";
}

TEST(MultiportChip, SharesABusThroughTwoRegisters)
{
    Desk desk;
    desk.chip.strap(4);
    EXPECT_FALSE(desk.chip.read(0x13, 3));
    EXPECT_FALSE(desk.chip.write(5, 0, 0));
    desk.chip.write(4, 0, 0x9800 | 0x13 << 5 | 3);
    EXPECT_EQ(desk.read(4, 0) & 0x8000, 0x8000);
    EXPECT_EQ(desk.read(4, 0) & 0x8000, 0);
    EXPECT_EQ(desk.read(4, 1), 0x3101);
    desk.chip.write(4, 1, 0x0055);
    desk.chip.write(4, 0, 0x9400 | 0x16 << 5 | 6);
    desk.chip.write(4, 0, 0x9400 | 0x15 << 5 | 6); // too early: ignored
    EXPECT_EQ(desk.finish(4, 0) & 0x8000, 0);
    EXPECT_EQ(desk.chip.peek(0x16, 6), 0x0055);
    EXPECT_EQ(desk.chip.peek(0x15, 6), 0x5F);
}

TEST(MultiportChip, RunsPhyCommandsOneAtATime)
{
    Desk desk;
    desk.phy_write(3, 16, 0x0020);
    EXPECT_EQ(desk.phy_read(3, 16), 0x0020);
    EXPECT_EQ(desk.phy_read(4, 16), 0x0060);
    desk.chip.write(kGlobal2, 0x18, 0x9800 | 3 << 5 | 16);
    EXPECT_EQ(desk.read(kGlobal2, 0x19), 0x0060) << "the data of the command before";
    desk.chip.write(kGlobal2, 0x18, 0x9800 | 4 << 5 | 16); // too early: ignored
    desk.finish(kGlobal2, 0x18);
    EXPECT_EQ(desk.read(kGlobal2, 0x19), 0x0020);
    desk.chip.write(kGlobal2, 0x18, 0x8800 | 4 << 5 | 16); // clause 45, which the PHYs lack
    desk.finish(kGlobal2, 0x18);
    EXPECT_EQ(desk.read(kGlobal2, 0x19), 0x0020);
    desk.chip.jam("phy", true);
    desk.chip.write(kGlobal2, 0x18, 0x9800 | 4 << 5 | 16);
    EXPECT_EQ(desk.finish(kGlobal2, 0x18) & 0x8000, 0x8000);
}

TEST(MultiportChip, PagesHideAllRegistersButTheirSelection)
{
    Desk desk;
    desk.phy_write(3, 22, 2);
    EXPECT_EQ(desk.phy_read(3, 22), 2);
    EXPECT_EQ(desk.phy_read(3, 0), 0);
    desk.phy_write(3, 0, 0x8000);
    EXPECT_EQ(desk.phy_read(3, 0), 0x8000) << "not the control register";
    EXPECT_EQ(desk.phy_read(4, 22), 0) << "each PHY has its page";
    desk.phy_write(3, 22, 0);
    EXPECT_EQ(desk.phy_read(3, 0), 0x1140);
}

TEST(MultiportChip, NegotiatesInItsTimeAndKeepsALossOfLink)
{
    Desk desk;
    desk.phy_read(3, 1);
    EXPECT_EQ(desk.phy_read(3, 1) & 0x24, 0x24);
    EXPECT_EQ(desk.phy_read(3, 17), 0xAC00) << "1000, full duplex, resolved, link";
    EXPECT_EQ(desk.phy_read(3, 10) & 0x0C00, 0x0C00);
    desk.phy_write(3, 0, 0x1340);
    EXPECT_EQ(desk.phy_read(3, 0), 0x1140) << "the restart clears itself";
    EXPECT_EQ(desk.phy_read(3, 1) & 0x24, 0);
    EXPECT_EQ(desk.phy_read(3, 17), 0);
    desk.now += 2'000'000'000;
    EXPECT_EQ(desk.phy_read(3, 17), 0xAC00);
    EXPECT_EQ(desk.phy_read(3, 1) & 0x24, 0x20) << "the loss is still to be told";
    EXPECT_EQ(desk.phy_read(3, 1) & 0x24, 0x24);
    desk.phy_write(3, 9, 0);
    desk.phy_write(3, 0, 0x1340);
    desk.now += 2'000'000'000;
    EXPECT_EQ(desk.phy_read(3, 17), 0x6C00) << "100, as 1000 is no longer advertised";
    desk.phy_write(3, 0, 0x0800);
    EXPECT_EQ(desk.read(0x13, 0), 0x1000) << "power down";
}

TEST(MultiportChip, AppliesSomeSettingsWithAReset)
{
    Desk desk;
    const auto loop = [&desk](uint16_t speed, int64_t wait) {
        desk.phy_write(3, 22, 2);
        desk.phy_write(3, 21, speed);
        desk.phy_write(3, 22, 0);
        desk.phy_write(3, 0, 0x9140);
        desk.now += wait;
        desk.phy_write(3, 0, 0x5140);
        return desk.chip.phy(3)->loops();
    };
    EXPECT_FALSE(loop(0x0040, 0)) << "1000 needs time";
    EXPECT_TRUE(loop(0x0040, 1'000'000'000));
    EXPECT_TRUE(loop(0x2000, 0));
    desk.phy_write(3, 0, 0x1140);
    EXPECT_FALSE(desk.chip.phy(3)->loops());
    desk.phy_write(3, 16, 0x0020);
    EXPECT_EQ(desk.phy_read(3, 17) & 0x40, 0);
    desk.phy_write(3, 0, 0x9140);
    EXPECT_EQ(desk.phy_read(3, 17) & 0x40, 0x40);
}

TEST(MultiportChip, CountersAreThoseOfTheLastCapture)
{
    Desk desk;
    desk.chip.count(2, 0x04, 0x12345678);
    EXPECT_EQ(desk.counter(0x04), 0u);
    desk.chip.write(kGlobal1, 0x1D, 0xDC00 | 3 << 5); // port 2 is 3 in this family
    desk.finish(kGlobal1, 0x1D);
    desk.chip.count(2, 0x04, 1);
    EXPECT_EQ(desk.counter(0x04), 0x12345678u);
    desk.chip.write(kGlobal1, 0x1D, 0xA000 | 3 << 5); // flush port 2
    desk.finish(kGlobal1, 0x1D);
    EXPECT_EQ(desk.counter(0x04), 0x12345678u);
    desk.chip.write(kGlobal1, 0x1D, 0xDC00 | 3 << 5);
    desk.finish(kGlobal1, 0x1D);
    EXPECT_EQ(desk.counter(0x04), 0u);
}
