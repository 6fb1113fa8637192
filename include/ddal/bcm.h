/*
 * Broadcom switch: the back end of eth_switch.h, and of phy.h where the switch serves the PHY.
 *
 * Applications call eth_switch.h and phy.h, which check the switch number and the board first. The operations here send
 * requests to the switch's user service; eth_switch.h describes the first call, blocking and parallel calls.
 *
 * port: port of the switch, 0 to 255. A larger one returns DDAL_ERR_FAILURE before the switch is opened. Ports 14, 16
 *       and 20 are copper: the operations access their PHY's registers directly, at MDIO address 1 for port 14 and at 0
 *       for ports 16 and 20. All other ports are fibre.
 *
 * Return 0 on success. DDAL_ERR_FAILURE: the value is not supported, an output is NULL, the operation requires a copper
 * port, the switch cannot be opened, or the switch refused. The log then has the switch's error text. Outputs are
 * unspecified after a failure.
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
 * Gets or sets the auto-negotiation, duplex mode, speed and power of a port. Forcing the mode or speed of a copper port
 * switches auto-negotiation off and resets the PHY.
 *
 * state: 1 on, 0 off.
 * mode:  enum ddal_phy_duplex.
 * speed: Mb/s: 10, 100 or 1000 on a copper port. A fibre port accepts 2500 and 10000 too, and reports only these two.
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
 * Restarts auto-negotiation, resets the PHY, or accesses one 16-bit PHY register. Copper ports only.
 *
 * reg: 0 to 31, in the register page that the PHY has selected.
 *
 * @threads safe on different units: ports; two calls that change one register may undo each other
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_copper_restart_autoneg(uint32_t port);
DDAL_API int ddal_bcm_copper_reset(uint32_t port);
DDAL_API int ddal_bcm_write_ext_phy_register(uint32_t port, uint32_t reg, uint16_t value);
DDAL_API int ddal_bcm_read_ext_phy_register(uint32_t port, uint32_t reg, uint16_t *value);

/*
 * Reads the state of a copper link. Speed and duplex mode are DDAL_PHY_UNKNOWN without a link and until the PHY has
 * resolved them.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_copper_get_status(uint32_t port, struct ddal_phy_copper_status *status);

/*
 * Gets or sets what the port advertises to its link partner: a combination of speed (Mb/s) and mode (enum
 * ddal_phy_duplex), or pause frames. A change resets the PHY of a copper port. Pause frames: fibre ports only, in both
 * directions together. Asymmetric pause can be read but not set.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_set_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint32_t enable);
DDAL_API int ddal_bcm_get_config_advert(uint32_t port, uint32_t speed, uint32_t mode, uint16_t *enabled);
DDAL_API int ddal_bcm_get_config_advert_pause(uint32_t port, uint16_t *pause, uint16_t *asym_pause);
DDAL_API int ddal_bcm_set_config_advert_pause(uint32_t port, uint32_t pause, uint32_t asym_pause);

/*
 * Gets or sets the frequency of the recovered clock, code 1, 2 or 7 (see ddal_phy_get_rclk_freq). Copper ports only;
 * -ENODEV: another port.
 *
 * @threads safe on different units: PHYs; the call selects another register page and puts the old one back
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_rclk_freq(uint32_t port, uint16_t *code);
DDAL_API int ddal_bcm_set_rclk_freq(uint32_t port, uint16_t code);

/*
 * Gets or sets the crossover mode (enum ddal_phy_crossover) or the PHY's internal loopback (1 on, 0 off).
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_mdix(uint32_t port, uint16_t *mode);
DDAL_API int ddal_bcm_set_mdix(uint32_t port, uint32_t mode);
DDAL_API int ddal_bcm_set_phy_loopback(uint32_t port, uint32_t enable);
DDAL_API int ddal_bcm_get_phy_loopback(uint32_t port, uint32_t *state);

/*
 * Gets or sets the clock role of the 2.5G PHY (port 20).
 *
 * config:    receives DDAL_PHY_SLAVE, DDAL_PHY_MASTER or DDAL_PHY_AUTOMATIC.
 * port_type: receives DDAL_PHY_MULTI_PORT or DDAL_PHY_SINGLE_PORT.
 * is_master: receives 1 or 0; 0 without a link.
 * mode:      any of enum ddal_phy_clock_role.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_get_master_slave_configuration(uint32_t port, uint16_t *config, uint16_t *port_type);
DDAL_API int ddal_bcm_get_master_slave(uint32_t port, uint16_t *is_master);
DDAL_API int ddal_bcm_set_master_slave(uint32_t port, uint32_t mode);

/*
 * Serves the operations of eth_switch.h of the same meaning, with the same arguments, for rates, counters, default
 * S-VLANs, multicast filters and loopback.
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
 * Serves the tunnels of eth_switch.h. ethertype 0: every frame.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_tunneling_set(uint32_t port1, uint32_t port2, uint32_t ethertype);
DDAL_API int ddal_bcm_tunneling_remove(uint32_t port1, uint32_t port2);
DDAL_API int ddal_bcm_tunneling_get(uint32_t port, uint32_t *peer_port);

/*
 * Selects the port whose received clock the switch recovers, as ddal_eth_switch_set_synce_source.
 *
 * @threads safe: the last of several callers decides
 * @blocks until the diagnostic shell has answered; 3 s without data end it
 */
DDAL_API int ddal_bcm_set_synce_source(uint32_t port);

/*
 * Serves the queue weights and queue mappings of eth_switch.h.
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
 * Serves the address lists of eth_switch.h.
 *
 * static_entries: 0 lists the learned addresses, any other value the static ones.
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
 * Lists the C-VLANs or S-VLANs of a port.
 *
 * size: number of entries that fit into the list.
 *
 * Return the NUMBER of VLANs (0 or more) and store at most `size` of them, unlike the operations of eth_switch.h.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_cvlans_get(uint32_t port, uint16_t *cvlans, uint32_t size);
DDAL_API int ddal_bcm_svlans_get(uint32_t port, uint16_t *svlans, uint32_t size);

/*
 * Serves the egress translations and the DSCP lookup of eth_switch.h.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_egress_translations_get(uint32_t port, struct ddal_eth_switch_translation *list, uint32_t *size);
DDAL_API int ddal_bcm_qos_enable(uint32_t port);
DDAL_API int ddal_bcm_qos_disable(uint32_t port);
DDAL_API int ddal_bcm_qos_status(uint32_t port, uint32_t *status);

/*
 * Serves the ethertype S-VLANs and the VLAN learning mode of eth_switch.h.
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
 * Fills in the configuration of the switch SDK, which calls it while it starts. Not for applications. Logs a failure.
 *
 * @threads one caller at a time: the switch's client library
 * @blocks none
 */
DDAL_API void sal_config_init_defaults(void);

DDAL_END_DECLS

#endif
