// Identity from the device tree that the kernel was started with.
#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <string>

#include <ddal/devicetree.h>
#include <ddal/unit.h>

namespace {

using Address = std::array<uint8_t, 6>;

TEST(Identity, Texts)
{
    struct {
        int (*get)(uint32_t, size_t, char *);
        const char *text;
    } const rows[] = {
        {ddal_devicetree_get_production_code, "RIG-4711"},
        {ddal_devicetree_get_serial_number, "SN00000042"},
        {ddal_devicetree_get_unit_id, "X21"},
        {ddal_devicetree_get_manufacturer, "Rig"},
        {ddal_devicetree_get_hwcompat, "rig,small-cell"},
    };
    for (const auto &row : rows) {
        std::array<char, 64> text{};
        EXPECT_EQ(row.get(0, text.size(), text.data()), 0) << row.text;
        EXPECT_STREQ(text.data(), row.text);
    }

    std::array<char, 64> text{};
    EXPECT_EQ(ddal_devicetree_get_module_serial_number(text.size(), text.data()), 0);
    EXPECT_STREQ(text.data(), "MODULE-7");
    EXPECT_EQ(ddal_devicetree_get_serial_number(0, 5, text.data()), 0);
    EXPECT_STREQ(text.data(), "SN00");
    EXPECT_EQ(ddal_devicetree_get_die_id(text.size(), text.data()), -ENOENT);
}

TEST(Identity, NumbersAndMasks)
{
    EXPECT_EQ(ddal_unit_get_board(), 6);

    uint32_t value = 0;
    EXPECT_EQ(ddal_devicetree_get_hw_sw_id(0, &value), 0);
    EXPECT_EQ(value, 0x12345678u);
    EXPECT_EQ(ddal_devicetree_get_hal_major(&value), 0);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(ddal_devicetree_get_isti(0, &value), 0);
    EXPECT_EQ(value, 0xA1B2C3D4u);
    EXPECT_EQ(ddal_devicetree_get_band_class(&value), 0);
    EXPECT_EQ(value, 3u);
    EXPECT_EQ(ddal_devicetree_get_sub_band(&value), 0);
    EXPECT_EQ(value, 0x12u);
    EXPECT_EQ(ddal_devicetree_get_user_defined_a_backhaul_3_type(&value), 0);
    EXPECT_EQ(value, 0x40u);

    uint32_t count = 0;
    EXPECT_EQ(ddal_devicetree_get_dsp_mask(0, &value, &count), 0);
    EXPECT_EQ(value, 0b1101u);
    EXPECT_EQ(count, 4u);

    EXPECT_LT(ddal_devicetree_set_isti(1), 0); // the kernel's tree is read-only
    EXPECT_EQ(ddal_devicetree_get_isti(0, &value), 0);
    EXPECT_EQ(value, 0xA1B2C3D4u);
}

TEST(Identity, AddressesOfTheInterfaces)
{
    struct {
        const char *ifname;
        int result;
        Address address;
    } const rows[] = {
        {"eth0", 0, {2, 0, 0, 0, 0, 0x10}},
        {"eth1", 0, {2, 0, 0, 0, 0, 0x11}},
        {"virt3", 0, {2, 0xAA, 0xBB, 0xCC, 0xDD, 3}},
        {"eth2", -ENODEV, {}},
        {"virt4", -ENOENT, {}},
    };
    for (const auto &row : rows) {
        Address found{};
        EXPECT_EQ(ddal_devicetree_get_mac_addr(0, row.ifname, found.data()), row.result) << row.ifname;
        EXPECT_EQ(found, row.address) << row.ifname;
    }
}

} // namespace
