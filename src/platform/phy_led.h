// LEDs of the copper PHYs.
#pragma once

#include <cstdint>

namespace ddal::platform {

// Stores the PHY's number, which is the fourth character of the interface name.
int eif_name_to_phy_id(const char *name, uint32_t *phy_dev);

// Applies DDAL_LED_DISABLED or DDAL_LED_ENABLED to every listed PHY. Continues after a PHY that fails.
int mv88e1510_set_phy_led(uint32_t colour);

} // namespace ddal::platform
