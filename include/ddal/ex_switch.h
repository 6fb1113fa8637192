/*
 * External multiport switch behind a backhaul port: an 88E6320 or 88E6321, with 7 ports (0 to 6) and internal PHYs at
 * ports 3 and 4. The operations of phy.h call ex_switch_phy_* with the port in place of the PHY device. The
 * ddal_ext_multiport_* operations serve every port.
 *
 * The library reaches the switch over its management bus (MDIO), either through the phy_regs nodes of the bus or
 * through the MII requests (SIOCGMIIREG, SIOCSMIIREG) of the network interface that owns the bus. Items of the
 * system-information store (sysinfo.h) select it:
 *
 *     0.6320.1   1: phy_regs nodes, 2: MII requests. Default: the nodes if the bus has one for the switch.
 *     0.6320.2   address: 0 for a switch that answers at all addresses of its bus (the default), else the even address
 *                of a switch that shares the bus. The library never looks for that address: a PHY that it tried instead
 *                would take the command for a reset.
 *     0.6320.3   N, when ethN owns the bus. Default: 3.
 *
 * With one of these items the board is known to have the switch: if it does not answer, is_BH3_type_multiport_switch
 * logs the reason, and the other operations return DDAL_ERR_FAILURE. Without them, the others return -ENOSYS. A process
 * keeps the items from the first time that it has recognised the switch by its identifier.
 *
 * Every use of the switch holds the lock /run/ddal-multiport.lock, so that all processes and threads may call any of
 * the operations at the same time. A process that dies leaves no lock and no page that others could mistake. No kernel
 * driver may use the switch at the same time. Access requires write permission on the lock, and on the nodes or
 * CAP_NET_ADMIN.
 *
 * Return 0 on success. DDAL_ERR_FAILURE: an access failed, the switch stays busy for 100 polls, or an output is NULL.
 * -EINVAL: wrong port or value. -ENOSYS: no switch. Every failure logs one line. Outputs are unspecified after a
 * failure.
 *
 * Every name but ddal_ext_* is a weak symbol: a product with another switch supplies its operations.
 */
#ifndef DDAL_EX_SWITCH_H
#define DDAL_EX_SWITCH_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

struct ddal_phy_copper_status;

/*
 * Returns 0 if the switch is fitted, else -1. A replacement may return any number from 0 instead of 0.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks until another user of the switch is done: once in a process, then none
 */
DDAL_API int is_BH3_type_multiport_switch(void);

/*
 * Serves the ddal_phy_* operation of the same meaning, with its arguments and the port of the switch (3 or 4) in place
 * of the PHY device. Speed and duplex mode are those that the PHY has resolved while auto-negotiation is on, or
 * DDAL_PHY_UNKNOWN. The setters of both take effect when auto-negotiation goes off. Setters of what the PHY advertises
 * restart auto-negotiation. Unlike ddal_phy_copper_restart_autoneg on other PHYs, the restart keeps the other settings.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks until another user of the switch is done, then some accesses
 */
DDAL_API int ex_switch_phy_set_autoneg(uint32_t port, uint32_t state);
DDAL_API int ex_switch_phy_get_autoneg(uint32_t port, uint32_t *state);
DDAL_API int ex_switch_phy_set_duplex_mode(uint32_t port, uint32_t mode);
DDAL_API int ex_switch_phy_get_duplex_mode(uint32_t port, uint32_t *mode);
DDAL_API int ex_switch_phy_set_speed(uint32_t port, uint32_t speed);
DDAL_API int ex_switch_phy_get_speed(uint32_t port, uint32_t *speed);
DDAL_API int ex_switch_phy_get_copper_loopback(uint32_t port, uint32_t *state);
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

/*
 * Switches the PHY's internal loopback on or off, at its present speed (1000 Mb/s while auto-negotiation has no
 * result).
 *
 * state: 1 on, 0 off.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks until another user of the switch is done; switching on at 1000 Mb/s takes 1 s more, without the lock
 */
DDAL_API int ex_switch_phy_set_copper_loopback(uint32_t port, uint32_t state);

/* Number of ports. */
#define DDAL_EXT_MULTIPORT_PORTS 7u

/* What a port does with frames. */
enum ddal_ext_multiport_state {
    DDAL_EXT_MULTIPORT_DISABLED = 0,
    DDAL_EXT_MULTIPORT_BLOCKING = 1,
    DDAL_EXT_MULTIPORT_LEARNING = 2,
    DDAL_EXT_MULTIPORT_FORWARDING = 3
};

/* State of a port. 28 bytes. */
struct ddal_ext_multiport_status {
    uint32_t link;   /* 1 up, 0 down */
    uint32_t speed;  /* Mb/s, or DDAL_PHY_UNKNOWN (phy.h) while the link is down */
    uint32_t duplex; /* enum ddal_phy_duplex, or DDAL_PHY_UNKNOWN */
    uint32_t pause;  /* 1: pause frames are in use */
    uint32_t phy;    /* 1: the port has found a PHY */
    uint32_t mode;   /* the interface mode as the port names it: 8 100BASE-X, 9 1000BASE-X, 10 SGMII */
    uint32_t state;  /* enum ddal_ext_multiport_state */
};

/* Counters of a port, all of one moment but the last three. 216 bytes. Except for octets they have 32 bits in the
 * switch, and the last two 16. */
struct ddal_ext_multiport_counters {
    uint64_t in_good_octets; /* octets of good frames received */
    uint64_t in_bad_octets;  /* octets of bad frames received */
    uint64_t in_unicasts;    /* good unicast frames received */
    uint64_t in_broadcasts;  /* good broadcast frames received */
    uint64_t in_multicasts;  /* good multicast frames received */
    uint64_t in_pauses;      /* PAUSE frames received */
    uint64_t in_undersized;  /* frames received with fewer than 64 octets and a good FCS */
    uint64_t in_fragments;   /* frames received with fewer than 64 octets and a bad FCS */
    uint64_t in_oversized;   /* frames received that are too long, with a good FCS */
    uint64_t in_jabbers;     /* frames received that are too long, with a bad FCS */
    uint64_t in_rx_errors;   /* frames received with an error signal of the PHY */
    uint64_t in_fcs_errors;  /* frames received with a bad FCS */
    uint64_t out_octets;     /* octets sent */
    uint64_t out_unicasts;   /* unicast frames sent */
    uint64_t out_broadcasts; /* broadcast frames sent */
    uint64_t out_multicasts; /* multicast frames sent */
    uint64_t out_pauses;     /* PAUSE frames sent */
    uint64_t out_fcs_errors; /* frames sent with a bad FCS */
    uint64_t deferred;       /* frames sent late because the medium was busy */
    uint64_t excessive;      /* frames given up after 16 collisions */
    uint64_t single;         /* frames sent after one collision */
    uint64_t multiple;       /* frames sent after several */
    uint64_t collisions;     /* collisions */
    uint64_t late;           /* collisions after 512 bit times */
    uint64_t in_discards;    /* good frames without room */
    uint64_t in_filtered;    /* good frames received that no port took */
    uint64_t out_filtered;   /* frames that the rules of this port kept from it */
};

/*
 * Reads the state or the counters of a port.
 *
 * port: 0 to 6.
 *
 * @threads safe
 * @blocks until another user of the switch is done, then some accesses
 */
DDAL_API int ddal_ext_multiport_get_port_status(uint32_t port, struct ddal_ext_multiport_status *status);
DDAL_API int ddal_ext_multiport_get_port_counters(uint32_t port, struct ddal_ext_multiport_counters *counters);

/*
 * Gets or sets the ports that a port may send frames to.
 *
 * port:  0 to 6.
 * ports: bit N stands for port N.
 *
 * @threads safe
 * @blocks until another user of the switch is done, then some accesses
 */
DDAL_API int ddal_ext_multiport_get_port_vlan_map(uint32_t port, uint32_t *ports);
DDAL_API int ddal_ext_multiport_set_port_vlan_map(uint32_t port, uint32_t ports);

DDAL_END_DECLS

#endif
