// The recovered-clock register of the two PHYs in use.
#pragma once

#include <cstdint>

// 0, -1001, or for a code that the PHY does not know -EINVAL (Atheros) or -ENOSYS (Marvell).
int ddal_phy_get_rclk_freq_atheros(uint32_t dev_id, uint16_t *code);
int ddal_phy_set_rclk_freq_atheros(uint32_t dev_id, uint16_t code);
int ddal_phy_get_rclk_freq_marvel(uint32_t dev_id, uint16_t *code);
int ddal_phy_set_rclk_freq_marvel(uint32_t dev_id, uint16_t code);
