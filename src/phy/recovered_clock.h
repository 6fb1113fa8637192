// The recovered-clock register of the two PHYs in use.
#pragma once

#include <cstdint>

// Return 0, DDAL_ERR_FAILURE, or for an unknown code -EINVAL (Atheros) or -ENOSYS (Marvell).
int ddal_phy_get_rclk_freq_atheros(uint32_t dev_id, uint16_t *code);
int ddal_phy_set_rclk_freq_atheros(uint32_t dev_id, uint16_t code);
int ddal_phy_get_rclk_freq_marvel(uint32_t dev_id, uint16_t *code);
int ddal_phy_set_rclk_freq_marvel(uint32_t dev_id, uint16_t code);
