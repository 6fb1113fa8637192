/*
 * PHYs of the backhaul ports, and events when a link comes or goes.
 *
 * One set of operations whatever sits behind a port: a copper PHY on the SoC's MDIO bus (its phy_regs node and the
 * kernel's ethtool interface), a port of an external multiport switch (ex_switch.h), or a port of the Broadcom switch
 * (board type 9, bcm.h). Board type, PHY device and the fitting of the backhaul ports in the device tree decide. Board
 * type 5 has no PHY access.
 *
 * phy_dev: the backhaul port, 0 to 4. On boards other than type 9 device 0 is the network interface "eth1", 1 is
 *          "eth0", and 2, 3 and 4 are "eth3".
 *
 * Common to all operations: 0 on success. -1001: the general failure, also for a NULL output (ddal_phy_get_association:
 * -EINVAL). -ENOSYS: the board has no such access. -EINVAL: a value that the operation does not know. -ENODEV: no such
 * PHY device on this board. Otherwise the code of the switch that serves the port. Outputs are unspecified after a
 * failure.
 *
 * Register access needs write permission on the phy_regs node and on the CPLD's reset lines; settings of network
 * interfaces need CAP_NET_ADMIN. Register and ethtool accesses block as long as their driver does; accesses to a switch
 * as described in bcm.h. Nothing is kept between calls and no lock is taken: calls may run in parallel, but two calls
 * that change the same register can undo each other.
 */
#ifndef DDAL_PHY_H
#define DDAL_PHY_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Where a PHY device sits. 28 bytes. */
struct ddal_phy_association {
    char ifname[16];     /* network interface; empty on board type 9 */
    uint32_t bh_port;    /* backhaul port, 1 to 4 */
    int32_t switch_port; /* port of the switch that serves it; -1: reached directly */
    int32_t dev_id;      /* number of the SoC's Ethernet port; -1 on board type 9 */
};

/* State of a copper link. 12 bytes. */
struct ddal_phy_copper_status {
    uint32_t link;   /* 1 up, 0 down */
    uint32_t speed;  /* Mb/s; 0xFFFFFFFF when the interface is down */
    uint32_t duplex; /* 1 full, 0 half; 0xFFFFFFFF when the interface is down */
};

/*
 * Tells where a PHY device sits.
 *
 * @threads safe
 * @blocks some accesses
 */
DDAL_API int ddal_phy_get_association(uint32_t phy_dev, struct ddal_phy_association *association);

/*
 * One 16-bit register of the PHY. reg: 0 to 31. page: the PHY's page, 0 for the standard registers; on board type 9 the
 * page is not passed on and the PHY's selected page applies.
 *
 * @threads safe
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_read(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t *data);
DDAL_API int ddal_phy_write(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t value);
/* Register 6, auto-negotiation expansion. */
DDAL_API int ddal_phy_copper_get_expansion_reg(uint32_t phy_dev, uint16_t *value);

/*
 * Settings of the network interface. The second argument is ignored; pass 0. state: 1 auto-negotiation on, else off.
 * mode: 1 full duplex, 0 half. speed: Mb/s.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_set_autoneg(uint32_t phy_dev, uint32_t ignored, uint32_t state);
DDAL_API int ddal_phy_get_autoneg(uint32_t phy_dev, uint32_t ignored, uint32_t *state);
DDAL_API int ddal_phy_set_duplex_mode(uint32_t phy_dev, uint32_t ignored, uint32_t mode);
DDAL_API int ddal_phy_get_duplex_mode(uint32_t phy_dev, uint32_t ignored, uint32_t *mode);
DDAL_API int ddal_phy_set_speed(uint32_t phy_dev, uint32_t ignored, uint32_t speed);
DDAL_API int ddal_phy_get_speed(uint32_t phy_dev, uint32_t ignored, uint32_t *speed);

/*
 * Loopback in the PHY. state: 1 on, 0 off.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_get_loopback_state(uint32_t phy_dev, uint32_t *state);
DDAL_API int ddal_phy_copper_loopback_enable(uint32_t phy_dev);
DDAL_API int ddal_phy_copper_loopback_disable(uint32_t phy_dev);

/*
 * Also 0 when the interface is down.
 *
 * @threads safe
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_get_status(uint32_t phy_dev, struct ddal_phy_copper_status *status);

/*
 * Clears the control register, then starts auto-negotiation.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_restart_autoneg(uint32_t phy_dev);

/*
 * Power. Down takes the network interface down first and leaves it so if the PHY then cannot be reached. Up releases
 * the PHY's reset line; a PHY that was powered down is powered up and its interface brought up unless the link is up.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_power_down(uint32_t phy_dev);
DDAL_API int ddal_phy_copper_power_up(uint32_t phy_dev);
DDAL_API int ddal_phy_copper_reset(uint32_t phy_dev);

/*
 * What is advertised. speed: 10, 100 or 1000. mode: 1 full duplex, 0 half. enable and *enabled: 1 or 0.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_set_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint32_t enable);
DDAL_API int ddal_phy_copper_get_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint16_t *enabled);

/*
 * Clock role at 1000 Mb/s. Modes and configurations: 0 slave, 1 master, 2 automatic; modes and port types: 4
 * multi-port, 8 single-port device. Reading the role also writes register 6. Setting it resets the PHY and re-applies
 * the settings of the interface "eth0", whichever device was named.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_get_master_slave(uint32_t phy_dev, uint16_t *is_master);
DDAL_API int ddal_phy_copper_set_master_slave(uint32_t phy_dev, uint32_t mode);
DDAL_API int ddal_phy_copper_get_master_slave_configuration(uint32_t phy_dev, uint16_t *config, uint16_t *port_type);

/*
 * Crossover: 0 forced straight (MDI), 1 forced crossed (MDI-X), 2 automatic.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_set_crossover_mode(uint32_t phy_dev, uint32_t mode);
DDAL_API int ddal_phy_copper_get_crossover_mode_configuration(uint32_t phy_dev, uint16_t *mode);

/*
 * Pause frames in the advertisement, 1 or 0 each. With both set only asymmetric pause is advertised.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_set_config_advert_pause_frames(uint32_t phy_dev, uint32_t pause, uint32_t asym_pause);
DDAL_API int ddal_phy_copper_get_config_advert_pause_frames(uint32_t phy_dev, uint16_t *pause, uint16_t *asym_pause);

/*
 * Frequency of the recovered clock, a code from 0 to 7; 2 is 25 MHz. Which codes a PHY knows depends on the PHY.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_get_rclk_freq(uint32_t phy_dev, uint16_t *code);
DDAL_API int ddal_phy_set_rclk_freq(uint32_t phy_dev, uint16_t code);

/*
 * Link events. A descriptor becomes readable when the link changes, and is readable from the start, so that the first
 * wait returns at once with the present state. Several changes before it is read are one event. Wait with poll, select
 * or epoll; then retrieve. The states come over the system D-Bus from the network and switch services; a thread of the
 * library, started with the first descriptor and never stopped, receives them. Opening blocks while the bus and the
 * service answer, at most 25 s for a service that does not; retrieving and closing do not block. Different descriptors
 * may be used in parallel from any threads.
 *
 * When the bus itself goes away every descriptor becomes readable and retrieving gives -EIO; close all of them before
 * opening new ones. The descriptor must not be closed with close(2).
 *
 * The first descriptor, and the first one after all were closed, takes 10 free descriptors of the process, each further
 * one takes 7; four of them are for what other threads open meanwhile. With fewer, opening fails, errno is EMFILE (or
 * ENFILE), and the next try finds everything as before.
 *
 * Link events belong to the process that opens the first one. In a child that it forks afterwards every operation below
 * fails at once: opening with -1 (DDAL_ERR_FAILURE), the others with -ENOENT. The parent's events stay pending.
 */

/*
 * event: 0, the link. Any other: -EINVAL.
 * fd:    receives the descriptor. NULL: -EINVAL.
 *
 * @threads safe on different units: descriptors
 * @blocks up to 26 s: opening, where the service does not answer; the others: one access
 */
DDAL_API int ddal_phy_copper_event_open(uint32_t phy_dev, uint32_t event, int *fd);
DDAL_API int ddal_phy_copper_event_get(int fd, uint16_t *state);
DDAL_API int ddal_phy_copper_event_close(int fd);

/*
 * Return the descriptor (0 or more), or -1 (not -1001). port: the switch's port.
 *
 * @threads safe
 * @blocks up to 26 s: where the service does not answer
 */
DDAL_API int ddal_phy_event_register_linux_interface(const char *ifname);
DDAL_API int ddal_phy_event_register_broadcom_switch(uint32_t port);
DDAL_API int ddal_phy_event_register_marvell_switch(uint32_t port);

/*
 * state: receives 1 (up) or 0 (down), the state at the time of the call, also when nothing was pending.
 *
 * -ENOENT: not a descriptor of this family. -EIO: it cannot be read, or the service does not tell the state.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_phy_event_retrieve(int fd, uint16_t *state);

/*
 * Closes the descriptor. -ENOENT: not a descriptor of this family.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_phy_event_unregister(int fd);

DDAL_END_DECLS

#endif
