// An application that replaces the store: the library uses the replacement too.
#include <ddal/devicetree.h>
#include <ddal/product.h>
#include <ddal/sysinfo.h>
#include <ddal/wifi.h>

#include <gtest/gtest.h>

namespace {

uint64_t g_value = 0;
int g_updates = 0;
uint32_t g_family = 0;

} // namespace

int ddal_sysinfo_get_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t *value)
{
    *value = g_value;
    return category == 0 && key == 13 && key2 == 20 ? 0 : -1;
}

int ddal_sysinfo_set_uint(uint32_t, uint32_t, uint32_t, uint64_t value)
{
    g_value = value;
    return 0;
}

int ddal_sysinfo_update_devicetree_to_flash()
{
    ++g_updates;
    return -77;
}

void ddal_product_family_set(uint32_t value)
{
    g_family = value;
}

TEST(ReplacedStore, IsUsedByTheLibrary)
{
    EXPECT_EQ(ddal_is_wifi_supported(), -1);
    EXPECT_EQ(ddal_devicetree_set_reset_loop_counter_1(2), 0);
    EXPECT_EQ(g_value, 2U);
    EXPECT_EQ(ddal_is_wifi_supported(), 0);
    EXPECT_EQ(ddal_devicetree_write_to_flash(), -77);
    EXPECT_EQ(g_updates, 1);
    ddal_product_family_set(5);
    EXPECT_EQ(g_family, 5U);
}
