/*
 * PHYs of the backhaul ports, and link events.
 *
 * The same operations serve three kinds of ports: a copper PHY on the SoC's MDIO bus (through its phy_regs node and the
 * kernel's ethtool interface), a port of an external multiport switch (ex_switch.h), and a port of the Broadcom switch
 * (bcm.h). The board type, the PHY device and the backhaul types in the device tree select the kind. Board type
 * DDAL_BOARD_TYPE_5 does not have PHY access.
 *
 * phy_dev: the backhaul port, 0 to 4. On the MBO board it is a port of the Broadcom switch. On the other boards device
 * 0 is the network interface "eth1", device 1 is "eth0", and devices 2, 3 and 4 are "eth3".
 *
 * Every operation returns 0 on success unless its text says otherwise. DDAL_ERR_FAILURE: the access failed, or an
 * output is NULL (ddal_phy_get_association returns -EINVAL for NULL). -ENOSYS: the board does not have this access.
 * -EINVAL: the operation does not know the value. -ENODEV: this board does not have the PHY device. A switch that
 * serves the port can return other codes. Outputs are unspecified after a failure.
 *
 * Register access requires write permission on the phy_regs node and on the CPLD's reset lines. Settings of network
 * interfaces require CAP_NET_ADMIN. Register and ethtool accesses block as long as their driver does; bcm.h describes
 * the accesses to the Broadcom switch. The operations keep no state and take no lock. Calls may run in parallel.
 * Concurrent writers of one register can overwrite each other's change.
 */
#ifndef DDAL_PHY_H
#define DDAL_PHY_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Value of ddal_phy_copper_status.speed and .duplex while the interface is down or the PHY has not resolved them. */
#define DDAL_PHY_UNKNOWN 0xFFFFFFFFu

/* Duplex modes. */
enum ddal_phy_duplex { DDAL_PHY_HALF_DUPLEX = 0, DDAL_PHY_FULL_DUPLEX = 1 };

/* Clock roles at 1000 Mb/s (IEEE 802.3, clause 40). The last two are preferences for the automatic choice. */
enum ddal_phy_clock_role {
    DDAL_PHY_SLAVE = 0,
    DDAL_PHY_MASTER = 1,
    DDAL_PHY_AUTOMATIC = 2,  /* the two partners agree */
    DDAL_PHY_MULTI_PORT = 4, /* announces a multi-port device, which prefers to be master */
    DDAL_PHY_SINGLE_PORT = 8 /* announces a single-port device, which prefers to be slave */
};

/* Crossover of the receive and transmit pairs. */
enum ddal_phy_crossover {
    DDAL_PHY_MDI = 0,           /* forced straight */
    DDAL_PHY_MDIX = 1,          /* forced crossed */
    DDAL_PHY_CROSSOVER_AUTO = 2 /* the PHY finds out */
};

/* The register page of the standard registers 0 to 15. Other pages depend on the PHY. */
#define DDAL_PHY_PAGE_STANDARD 0u

/* Code of a 25 MHz recovered clock. The meaning of the other codes, 0 to 7, depends on the PHY. */
#define DDAL_PHY_CLOCK_25_MHZ 2u

/* Place of a PHY device on the board. 28 bytes. */
struct ddal_phy_association {
    char ifname[16];     /* network interface; empty on the MBO board */
    uint32_t bh_port;    /* backhaul port, 1 to 4 */
    int32_t switch_port; /* port of the switch that serves the PHY; -1 without a switch */
    int32_t dev_id;      /* number of the SoC's Ethernet port; -1 on the MBO board */
};

/* State of a copper link. 12 bytes. */
struct ddal_phy_copper_status {
    uint32_t link;   /* 1 up, 0 down */
    uint32_t speed;  /* Mb/s, or DDAL_PHY_UNKNOWN */
    uint32_t duplex; /* enum ddal_phy_duplex, or DDAL_PHY_UNKNOWN */
};

/*
 * Looks up the network interface, backhaul port and switch port of a PHY device.
 *
 * @threads safe
 * @blocks some accesses
 */
DDAL_API int ddal_phy_get_association(uint32_t phy_dev, struct ddal_phy_association *association);

/*
 * Reads or writes one 16-bit PHY register.
 *
 * reg:  0 to 31.
 * page: the PHY's register page, DDAL_PHY_PAGE_STANDARD for the standard registers. The MBO board ignores it and
 *       accesses the page that the PHY has selected.
 *
 * @threads safe
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_read(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t *data);
DDAL_API int ddal_phy_write(uint32_t phy_dev, uint32_t reg, uint32_t page, uint16_t value);
/* Reads register 6, auto-negotiation expansion. */
DDAL_API int ddal_phy_copper_get_expansion_reg(uint32_t phy_dev, uint16_t *value);

/*
 * Gets or sets auto-negotiation, duplex mode or speed of the network interface.
 *
 * ignored: pass 0.
 * state:   1 switches auto-negotiation on, any other value off.
 * mode:    enum ddal_phy_duplex.
 * speed:   Mb/s.
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
 * Gets, enables or disables the PHY's internal loopback.
 *
 * state: 1 on, 0 off.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_get_loopback_state(uint32_t phy_dev, uint32_t *state);
DDAL_API int ddal_phy_copper_loopback_enable(uint32_t phy_dev);
DDAL_API int ddal_phy_copper_loopback_disable(uint32_t phy_dev);

/*
 * Reads the state of a copper link. Returns 0 even when the interface is down; speed and duplex are then
 * DDAL_PHY_UNKNOWN.
 *
 * @threads safe
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_get_status(uint32_t phy_dev, struct ddal_phy_copper_status *status);

/*
 * Restarts auto-negotiation. The other bits of the PHY's control register become 0.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_restart_autoneg(uint32_t phy_dev);

/*
 * Powers a PHY down or up, or resets it. Powering down takes the network interface down first, and leaves it down when
 * the PHY access then fails. Powering up releases the PHY's reset line and ends the power-down state; it brings the
 * interface up unless the link is up already.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_power_down(uint32_t phy_dev);
DDAL_API int ddal_phy_copper_power_up(uint32_t phy_dev);
DDAL_API int ddal_phy_copper_reset(uint32_t phy_dev);

/*
 * Gets or sets whether auto-negotiation advertises one combination of speed and duplex mode.
 *
 * speed:   10, 100 or 1000 Mb/s.
 * mode:    enum ddal_phy_duplex.
 * enable:  1 or 0.
 * enabled: receives 1 or 0.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_set_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint32_t enable);
DDAL_API int ddal_phy_copper_get_config_advert(uint32_t phy_dev, uint32_t speed, uint32_t mode, uint16_t *enabled);

/*
 * Gets or sets the clock role at 1000 Mb/s. Reading the role also writes register 6. Setting it resets the PHY and
 * applies the settings of the interface "eth0" again, whichever device the call names.
 *
 * is_master: receives 1 or 0.
 * mode:      any of enum ddal_phy_clock_role.
 * config:    receives DDAL_PHY_SLAVE, DDAL_PHY_MASTER or DDAL_PHY_AUTOMATIC.
 * port_type: receives DDAL_PHY_MULTI_PORT or DDAL_PHY_SINGLE_PORT.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_get_master_slave(uint32_t phy_dev, uint16_t *is_master);
DDAL_API int ddal_phy_copper_set_master_slave(uint32_t phy_dev, uint32_t mode);
DDAL_API int ddal_phy_copper_get_master_slave_configuration(uint32_t phy_dev, uint16_t *config, uint16_t *port_type);

/*
 * Gets or sets the crossover mode, one of enum ddal_phy_crossover.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_set_crossover_mode(uint32_t phy_dev, uint32_t mode);
DDAL_API int ddal_phy_copper_get_crossover_mode_configuration(uint32_t phy_dev, uint16_t *mode);

/*
 * Gets or sets whether auto-negotiation advertises symmetric and asymmetric pause frames, 1 or 0 each. With both set
 * the PHY advertises asymmetric pause only.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_copper_set_config_advert_pause_frames(uint32_t phy_dev, uint32_t pause, uint32_t asym_pause);
DDAL_API int ddal_phy_copper_get_config_advert_pause_frames(uint32_t phy_dev, uint16_t *pause, uint16_t *asym_pause);

/*
 * Gets or sets the frequency of the recovered clock by its code, 0 to 7. An Atheros PHY knows all eight codes, a
 * Marvell PHY knows 1, 2 and 7, and the 2.5G PHY and the PHYs of an external switch know
 * DDAL_PHY_CLOCK_25_MHZ only.
 *
 * @threads safe on different units: PHY devices; two changes of one may undo each other
 * @blocks some accesses; exchanges where a switch serves the port
 */
DDAL_API int ddal_phy_get_rclk_freq(uint32_t phy_dev, uint16_t *code);
DDAL_API int ddal_phy_set_rclk_freq(uint32_t phy_dev, uint16_t code);

/*
 * ---- Link events ----
 *
 * A link event descriptor becomes readable when its link changes. It is readable from the start, so that the first wait
 * returns at once with the present state. Several changes before a retrieval count as one event. Wait with poll, select
 * or epoll, then retrieve. Different descriptors may be used in parallel from any threads.
 *
 * The network service and the switch service report the states over the system D-Bus. The library starts a thread that
 * receives them with the first descriptor and never stops it. Opening blocks while the bus and the service answer, for
 * at most 25 s when the service does not. Retrieving and closing do not block.
 *
 * When the bus ends, every descriptor becomes readable and retrieving returns -EIO. Close all of them before opening
 * new ones. Do not close a descriptor with close(2).
 *
 * The first descriptor, and the first one after the bus has ended, takes 10 free descriptors of the process. Each
 * further one takes 7. Four of them are a reserve for descriptors that other threads open meanwhile. With fewer,
 * opening fails with errno EMFILE (or ENFILE) and changes nothing; a later call can succeed. The connection to the bus
 * stays open.
 *
 * The first descriptor takes three threads. Without the first of them, link events fail for the life of the process.
 * Without the others, opening fails with errno EAGAIN; a later call can succeed.
 *
 * Link events belong to the process that opens the first one. In a child that it forks afterwards every link event
 * operation fails at once: opening with -1 (DDAL_ERR_FAILURE), the others with -ENOENT. The parent's events stay
 * pending.
 */

/*
 * Opens, retrieves or closes the link event descriptor of a PHY device.
 *
 * event: 0, a change of the link. Any other value: -EINVAL.
 * fd:    receives the descriptor. NULL: -EINVAL.
 * state: receives 1 (up) or 0 (down), as ddal_phy_event_retrieve.
 *
 * @threads safe on different units: descriptors
 * @blocks up to 26 s: opening, where the service does not answer; the others: one access
 */
DDAL_API int ddal_phy_copper_event_open(uint32_t phy_dev, uint32_t event, int *fd);
DDAL_API int ddal_phy_copper_event_get(int fd, uint16_t *state);
DDAL_API int ddal_phy_copper_event_close(int fd);

/*
 * Opens a link event descriptor for a network interface or for a port of a switch.
 *
 * ifname: name of the network interface.
 * port:   port of the switch.
 *
 * Return the descriptor (0 or more), or -1 on failure (not DDAL_ERR_FAILURE).
 *
 * @threads safe
 * @blocks up to 26 s: where the service does not answer
 */
DDAL_API int ddal_phy_event_register_linux_interface(const char *ifname);
DDAL_API int ddal_phy_event_register_broadcom_switch(uint32_t port);
DDAL_API int ddal_phy_event_register_marvell_switch(uint32_t port);

/*
 * Reads the state of a link and clears the pending event.
 *
 * state: receives 1 (up) or 0 (down) as of this call, even when no event was pending.
 *
 * -ENOENT: not a link event descriptor. -EIO: the descriptor cannot be read, or the service does not report the state.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_phy_event_retrieve(int fd, uint16_t *state);

/*
 * Closes a link event descriptor. -ENOENT: not a link event descriptor.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_phy_event_unregister(int fd);

DDAL_END_DECLS

#endif
