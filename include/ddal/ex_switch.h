/*
 * External multiport switch behind a backhaul port: operations that a product supplies for a board with such a switch.
 *
 * Every name here is a weak symbol. The operations of phy.h call them with a port of the switch (3 or 4) in place of
 * the PHY device. The defaults stand for a board without such a switch: they access nothing, log nothing and may be
 * called from any thread.
 *
 * Return 0 on success, DDAL_ERR_FAILURE or a negative errno on failure. Default: -ENOSYS.
 */
#ifndef DDAL_EX_SWITCH_H
#define DDAL_EX_SWITCH_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

struct ddal_phy_copper_status;

/*
 * Returns -1 when no external multiport switch is fitted (the default), else 0 or more.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks none: the default
 */
DDAL_API int is_BH3_type_multiport_switch(void);

/*
 * Serves the ddal_phy_* operation of the same meaning, with its arguments and the port of the switch in place of the
 * PHY device.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks none: the defaults
 */
DDAL_API int ex_switch_phy_set_autoneg(uint32_t port, uint32_t state);
DDAL_API int ex_switch_phy_get_autoneg(uint32_t port, uint32_t *state);
DDAL_API int ex_switch_phy_set_duplex_mode(uint32_t port, uint32_t mode);
DDAL_API int ex_switch_phy_get_duplex_mode(uint32_t port, uint32_t *mode);
DDAL_API int ex_switch_phy_set_speed(uint32_t port, uint32_t speed);
DDAL_API int ex_switch_phy_get_speed(uint32_t port, uint32_t *speed);
DDAL_API int ex_switch_phy_get_copper_loopback(uint32_t port, uint32_t *state);
DDAL_API int ex_switch_phy_set_copper_loopback(uint32_t port, uint32_t state);
DDAL_API int ex_switch_phy_copper_get_status(uint32_t port, struct ddal_phy_copper_status *status);
DDAL_API int ex_switch_phy_copper_restart_autoneg(uint32_t port);
/* on: 1 power up, 0 power down. */
DDAL_API int ex_switch_phy_copper_power(uint32_t port, uint32_t on);
DDAL_API int ex_switch_phy_copper_reset(uint32_t port);
DDAL_API int ex_switch_phy_copper_set_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint32_t enable);
DDAL_API int ex_switch_phy_copper_get_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint16_t *enabled);
DDAL_API int ex_switch_phy_copper_set_crossover_mode(uint32_t port, uint32_t mode);
DDAL_API int ex_switch_phy_copper_get_crossover_mode(uint32_t port, uint16_t *mode);
DDAL_API int ex_switch_phy_copper_set_config_advert_pause_frames(uint32_t port, uint32_t pause, uint32_t asym_pause);
DDAL_API int ex_switch_phy_copper_get_config_advert_pause_frames(uint32_t port, uint16_t *pause, uint16_t *asym_pause);

DDAL_END_DECLS

#endif
