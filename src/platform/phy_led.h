// LEDs of the copper PHYs.
#pragma once

#include <cstdint>

namespace ddal::platform {

// The fourth character of an interface name is the PHY's number.
int eif_name_to_phy_id(const char *name, uint32_t *phy_dev);

// Applies DDAL_LED_DISABLED or DDAL_LED_ENABLED to every listed PHY. One failing PHY does not stop the others.
int mv88e1510_set_phy_led(uint32_t colour);

} // namespace ddal::platform
