/*
 * Broadcom switch: the operations behind eth_switch.h, and those that phy.h uses where a PHY sits behind the switch.
 *
 * They go to the switch's user service, as described in eth_switch.h (first call, blocking, parallel calls); the checks
 * of switch number and board are the front end's. Applications call eth_switch.h and phy.h.
 *
 * port: port of the switch, 0 to 255; a larger one gives -1001 before the switch is opened. Ports 14, 16 and 20 are
 *       copper: their PHY's registers are reached directly (port 14 at MDIO address 1, ports 16 and 20 at 0). All
 * others are fibre.
 *
 * Return 0 on success. -1001: a value that is not supported, a NULL output, an operation that needs a copper port, the
 * switch cannot be opened, or the switch refused; its own error text is in the log. Outputs are unspecified after a
 * failure.
 */
#ifndef DDAL_BCM_H
#define DDAL_BCM_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

struct ddal_phy_copper_status;
struct ddal_eth_switch_port_stats;
struct ddal_eth_switch_mac_entry;
struct ddal_eth_switch_multicast_filter;
struct ddal_eth_switch_translation;

/*
 * Ports as PHYs. state: 1 on, 0 off. mode: 1 full duplex, 0 half. speed: 10, 100, 1000 (copper), also 2500 and 10000
 * (fibre; the getter knows only these two there). Forcing the mode or speed of a copper port switches auto-negotiation
 * off and resets the PHY.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_set_autoneg(uint32_t port, uint32_t state);
DDAL_API int ddal_bcm_get_autoneg(uint32_t port, uint32_t *state);
DDAL_API int ddal_bcm_set_duplex_mode(uint32_t port, uint32_t mode);
DDAL_API int ddal_bcm_get_duplex_mode(uint32_t port, uint32_t *mode);
DDAL_API int ddal_bcm_set_speed(uint32_t port, uint32_t speed);
DDAL_API int ddal_bcm_get_speed(uint32_t port, uint32_t *speed);
DDAL_API int ddal_bcm_power_down(uint32_t port);
DDAL_API int ddal_bcm_power_up(uint32_t port);

/*
 * Copper ports only. reg: standard register, 0 to 31, of the page that the PHY has selected.
 *
 * @threads safe on different units: ports; two calls that change one register may undo each other
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_copper_restart_autoneg(uint32_t port);
DDAL_API int ddal_bcm_copper_reset(uint32_t port);
DDAL_API int ddal_bcm_write_ext_phy_register(uint32_t port, uint32_t reg, uint16_t value);
DDAL_API int ddal_bcm_read_ext_phy_register(uint32_t port, uint32_t reg, uint16_t *value);

/*
 * Link, and with a link speed and duplex mode; without one, and where the PHY has not resolved it, 0xFFFFFFFF.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_copper_get_status(uint32_t port, struct ddal_phy_copper_status *status);

/*
 * What the port offers its partner. mode: 1 full duplex, 0 half. Changing it resets the PHY of a copper port. Pause
 * frames: fibre ports only, both directions together; asymmetric pause can be read but not set.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_set_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint32_t enable);
DDAL_API int ddal_bcm_get_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint16_t *enabled);
DDAL_API int ddal_bcm_get_config_advert_pause(uint32_t port, uint16_t *pause, uint16_t *asym_pause);
DDAL_API int ddal_bcm_set_config_advert_pause(uint32_t port, uint32_t pause, uint32_t asym_pause);

/*
 * Recovered clock, codes 1, 2 and 7 of phy.h. Copper ports only, any other: -ENODEV.
 *
 * @threads safe on different units: PHYs; the call selects another register page and puts the old one back
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_rclk_freq(uint32_t port, uint16_t *code);
DDAL_API int ddal_bcm_set_rclk_freq(uint32_t port, uint16_t code);

/*
 * Crossover: 0 forced straight, 1 forced crossed, 2 automatic. Loopback in the PHY: 1 on, 0 off.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_mdix(uint32_t port, uint16_t *mode);
DDAL_API int ddal_bcm_set_mdix(uint32_t port, uint32_t mode);
DDAL_API int ddal_bcm_set_phy_loopback(uint32_t port, uint32_t enable);
DDAL_API int ddal_bcm_get_phy_loopback(uint32_t port, uint32_t *state);

/*
 * Clock role of the 2.5G PHY (port 20). Modes and configurations: 0 slave, 1 master, 2 automatic; modes and port types:
 * 4 multi-port, 8 single-port device. is_master is 0 without a link.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_master_slave_configuration(uint32_t port, uint16_t *config, uint16_t *port_type);
DDAL_API int ddal_bcm_get_master_slave(uint32_t port, uint16_t *is_master);
DDAL_API int ddal_bcm_set_master_slave(uint32_t port, uint32_t mode);

/*
 * The rest is described, with the same arguments, in eth_switch.h.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_port_egress_shaping_set(uint32_t port, uint32_t limit, uint32_t burst);
DDAL_API int ddal_bcm_port_egress_shaping_get(uint32_t port, uint32_t *limit, uint32_t *burst);
DDAL_API int ddal_bcm_port_ingress_limiting_set(uint32_t port, uint32_t limit, uint32_t burst);
DDAL_API int ddal_bcm_port_ingress_limiting_get(uint32_t port, uint32_t *limit, uint32_t *burst);
DDAL_API int ddal_bcm_cos_dropped_pkts_get(uint32_t port, uint32_t counters[6]);
DDAL_API int ddal_bcm_cos_dropped_pkts_set(uint32_t port);
DDAL_API int ddal_bcm_port_stats_get(uint32_t port, struct ddal_eth_switch_port_stats *stats);
DDAL_API int ddal_bcm_default_svlan_set(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_default_svlan_get(uint32_t port, uint16_t *svlan);
DDAL_API int ddal_bcm_default_svlan_remove(uint32_t port);
DDAL_API int ddal_bcm_dstmac_filtered_tunneling_set(uint32_t port, uint32_t dst_port, const uint8_t mac[6]);
DDAL_API int ddal_bcm_dstmac_filtered_tunneling_remove(uint32_t port, uint32_t dst_port, const uint8_t mac[6]);
DDAL_API int ddal_bcm_dstmac_filtered_tunneling_get(uint32_t port, struct ddal_eth_switch_multicast_filter *list,
                                                    uint32_t *size);
DDAL_API int ddal_bcm_loopback_add(uint32_t port);
DDAL_API int ddal_bcm_loopback_remove(uint32_t port);
DDAL_API int ddal_bcm_loopback_get(uint32_t port, uint32_t *state);

/*
 * As in eth_switch.h; ethertype 0: every frame.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_tunneling_set(uint32_t port1, uint32_t port2, uint32_t ethertype);
DDAL_API int ddal_bcm_tunneling_remove(uint32_t port1, uint32_t port2);
DDAL_API int ddal_bcm_tunneling_get(uint32_t port, uint32_t *peer_port);

/*
 * As in eth_switch.h.
 *
 * @threads safe: the last of several callers decides
 * @blocks until the diagnostic shell has answered; 3 s without data end it
 */
DDAL_API int ddal_bcm_set_synce_source(uint32_t port);

/*
 * As in eth_switch.h.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_set_port_cosq_quanta(uint32_t port, const uint32_t quanta[8]);
DDAL_API int ddal_bcm_get_port_cosq_quanta(uint32_t port, uint32_t quanta[8]);
DDAL_API int ddal_bcm_set_mapping_mode(uint32_t port, uint32_t mode);
DDAL_API int ddal_bcm_get_mapping_mode(uint32_t port, uint32_t *mode);
DDAL_API int ddal_bcm_set_dscp_to_queue_mapping(uint32_t port, uint32_t dscp, uint32_t queue);
DDAL_API int ddal_bcm_get_dscp_to_queue_mapping(uint32_t port, uint32_t dscp, uint32_t *queue);
DDAL_API int ddal_bcm_set_pcp_to_queue_mapping(uint32_t port, uint32_t pcp, uint32_t queue);
DDAL_API int ddal_bcm_get_pcp_to_queue_mapping(uint32_t port, uint32_t pcp, uint32_t *queue);
DDAL_API int ddal_bcm_set_default_queue(uint32_t port, uint32_t queue);
DDAL_API int ddal_bcm_get_default_queue(uint32_t port, uint32_t *queue);

/*
 * As in eth_switch.h; static_entries: 0 the learned addresses, else the static ones.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_mac_addresses(uint32_t port, struct ddal_eth_switch_mac_entry *list, uint32_t *size,
                                        uint32_t static_entries);
DDAL_API int ddal_bcm_add_static_arl_entry(uint32_t port, const uint8_t mac[6], uint32_t vlan);
DDAL_API int ddal_bcm_remove_static_arl_entry(uint32_t port, const uint8_t mac[6], uint32_t vlan);
DDAL_API int ddal_bcm_learned_arl_entries_clear(uint32_t port);

/*
 * As in eth_switch.h, but these two return the NUMBER of VLANs (0 or more) and store at most `size` of them.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_cvlans_get(uint32_t port, uint16_t *cvlans, uint32_t size);
DDAL_API int ddal_bcm_svlans_get(uint32_t port, uint16_t *svlans, uint32_t size);

/*
 * As in eth_switch.h.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_egress_translations_get(uint32_t port, struct ddal_eth_switch_translation *list, uint32_t *size);
DDAL_API int ddal_bcm_qos_enable(uint32_t port);
DDAL_API int ddal_bcm_qos_disable(uint32_t port);
DDAL_API int ddal_bcm_qos_status(uint32_t port, uint32_t *status);

/*
 * As in eth_switch.h.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_ethertype_svlan_get(uint32_t port, uint32_t ethertype, uint16_t *svlan);
DDAL_API int ddal_bcm_ethertype_svlan_set(uint32_t port, uint32_t ethertype, uint32_t svlan);
DDAL_API int ddal_bcm_ethertype_svlan_remove(uint32_t port, uint32_t ethertype);
DDAL_API int ddal_bcm_vlan_learning_mode_set(uint32_t mode);
DDAL_API int ddal_bcm_vlan_learning_mode_get(uint32_t *mode);

/*
 * Called by the switch SDK while it builds its configuration; not for applications. A failure is logged.
 *
 * @threads one caller at a time: the switch's client library
 * @blocks none
 */
DDAL_API void sal_config_init_defaults(void);

DDAL_END_DECLS

#endif
