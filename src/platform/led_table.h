// LEDs, colours and the files behind them.
#pragma once

#include <cstdint>

#include <ddal/led.h>

namespace ddal::platform {

struct Led {
    uint32_t id;
    const char *attribute;
};

inline constexpr Led kLeds[] = {
    {DDAL_LED_STATUS, "/sys/class/cpld-usr/cpld-usr/st_led"},
    {DDAL_LED_BACKHAUL, "/sys/class/cpld-usr/cpld-usr/bh_led"},
    {DDAL_LED_RF, "/sys/class/cpld-usr/cpld-usr/rf_led"},
    {DDAL_LED_GLOBAL_STATE, "/sys/class/cpld-usr/cpld-usr/off_led"},
};

struct LedColour {
    uint32_t value;
    const char *token; // written, without a newline
    const char *text;  // read, up to the first newline
};

inline constexpr LedColour kLedColours[] = {
    {DDAL_LED_OFF, "o", "off"},
    {DDAL_LED_SOLID_GREEN, "g", "solid green"},
    {DDAL_LED_SOLID_RED, "r", "solid red"},
    {DDAL_LED_SOLID_YELLOW, "y", "solid yellow"},
    {DDAL_LED_BLINKING_GREEN, "gb", "blinking green"},
    {DDAL_LED_BLINKING_RED, "rb", "blinking red"},
    {DDAL_LED_BLINKING_YELLOW, "yb", "blinking yellow"},
    {DDAL_LED_DISABLED, "d", "disabled"},
    {DDAL_LED_ENABLED, "e", "enabled"},
};

// One regular file per Ethernet interface whose PHY LEDs follow the board-wide mode.
inline constexpr const char *kPhyLedDirectory = "/run/config/has/phy_leds";

} // namespace ddal::platform
