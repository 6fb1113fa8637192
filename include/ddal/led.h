/*
 * Front-panel LEDs and the board-wide LEDs-off mode.
 *
 * Reaches four attributes of the CPLD driver under /sys/class/cpld-usr/cpld-usr. Changing the board-wide mode also
 * reaches the LED registers of the copper PHYs whose interfaces are listed in /run/config/has/phy_leds and, when asked
 * to persist, runs /usr/bin/l2u-dtb. Requires read and write permission on the attributes (also for reading an LED),
 * and the permissions of the PHY registers (see phy.h).
 *
 * Every call opens and closes its files and keeps no state. Calls may run in parallel, but two settings of one LED may
 * disturb each other's read-back check. A call blocks as long as the attribute and the PHY registers do; a persistent
 * change also waits for the program, which writes flash.
 */
#ifndef DDAL_LED_H
#define DDAL_LED_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* The LEDs. */
#define DDAL_LED_STATUS 0x1000023
#define DDAL_LED_BACKHAUL 0x1000024
#define DDAL_LED_RF 0x1000025
#define DDAL_LED_GLOBAL_STATE 0x1000026 /* not a lamp: DDAL_LED_DISABLED switches all LEDs off */

/* The colour and blinking of an LED. The last two are for DDAL_LED_GLOBAL_STATE. */
enum ddal_led_colour {
    DDAL_LED_OFF = 0,
    DDAL_LED_SOLID_GREEN = 1,
    DDAL_LED_SOLID_RED = 2,
    DDAL_LED_SOLID_YELLOW = 3,
    DDAL_LED_BLINKING_GREEN = 7,
    DDAL_LED_BLINKING_RED = 8,
    DDAL_LED_BLINKING_YELLOW = 9,
    DDAL_LED_DISABLED = 19,
    DDAL_LED_ENABLED = 20
};

/*
 * Reads one LED.
 *
 * led_id: one of DDAL_LED_STATUS, _BACKHAUL, _RF, _GLOBAL_STATE.
 * colour: receives one of enum ddal_led_colour; unchanged after a failure.
 *
 * -EINVAL: unknown LED. -EFAULT: the attribute shows a text that is not a colour. Otherwise the negative errno of open
 * or read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_led_get(uint32_t led_id, uint32_t *colour);

/*
 * Sets one LED, reads it back, and puts the previous colour back when the new one did not stick. Writes nothing when
 * the LED shows the colour already. Setting DDAL_LED_GLOBAL_STATE also switches the PHY LEDs; a failure there is
 * returned with the mode already changed.
 *
 * led_id: as for reading.
 * colour: one of enum ddal_led_colour. DDAL_LED_DISABLED and DDAL_LED_ENABLED are meant for DDAL_LED_GLOBAL_STATE.
 *
 * -EINVAL: unknown LED or colour, or the LED did not take the colour. -EFAULT: as for reading. Otherwise the negative
 * errno of open, read or write, or the result of the PHY access.
 *
 * @threads safe on different units: LEDs
 * @blocks some accesses
 */
DDAL_API int ddal_led_set(uint32_t led_id, uint32_t colour);

/*
 * Switches all LEDs of the board on (so that they show their states) or off.
 *
 * state:   1 = enabled, 0 = disabled.
 * persist: non-zero stores the choice in the device tree first, so that it survives a restart.
 *
 * DDAL_ERR_FAILURE: another state, or the program that stores the choice failed. Otherwise as ddal_led_set.
 *
 * @threads one caller at a time: in the whole unit
 * @blocks some accesses; programs when the choice is to persist: two, which write flash
 */
DDAL_API int ddal_led_set_global_state(uint32_t state, uint32_t persist);

DDAL_END_DECLS

#endif
