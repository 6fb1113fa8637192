/*
 * Ethernet switch of the MBO board.
 *
 * The operations send requests to the switch's user service. The first call of a process that passes its argument
 * checks attaches to that service (loopback address, TCP port 20567). A failed attachment is final: every later call
 * returns DDAL_ERR_FAILURE. The attachment takes 1 s to 2 s, and longer while the service answers "no resources". Each
 * later call blocks for its exchanges with the service. The calls require no privilege besides the connection. Calls
 * may run in parallel; the switch's client library orders them.
 *
 * Arguments of all operations:
 * sw:   number of the switch, DDAL_ETH_SWITCH_BROADCOM. Any other: -ENOSYS.
 * port: port of the switch, 0 to 255. A larger one: DDAL_ERR_FAILURE.
 *
 * Return 0 on success. -ENOSYS: another switch number, or a board without this switch. DDAL_ERR_FAILURE: an output is
 * NULL, a value is out of range, the switch cannot be opened, or the switch refused. The log then has the switch's
 * error text. Outputs are unspecified after a failure unless an operation says otherwise.
 *
 * Lists: the caller sets *size to the number of entries that fit; the call sets it to the number of entries stored.
 * When the switch has more entries, the call stores as many as fit, sets *size to the number that did NOT fit (not the
 * total) and returns -ENOMEM.
 */
#ifndef DDAL_ETH_SWITCH_H
#define DDAL_ETH_SWITCH_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Number of the board's switch, the only one. */
#define DDAL_ETH_SWITCH_BROADCOM 2u

/* Counters of a port since the switch started. Packets are unicast, multicast and broadcast together. 64 bytes. */
struct ddal_eth_switch_port_stats {
    uint64_t rx_octets;  /* received */
    uint64_t rx_packets; /* received */
    uint64_t rx_errors;  /* received, and found faulty */
    uint64_t rx_dropped; /* received, and discarded */
    uint64_t tx_octets;  /* sent */
    uint64_t tx_packets; /* sent */
    uint64_t tx_errors;  /* not sent because of a fault */
    uint64_t tx_dropped; /* discarded instead of sent */
};

/* A MAC address that a port serves in a VLAN. 8 bytes. */
struct ddal_eth_switch_mac_entry {
    uint8_t mac[6]; /* in transmission order */
    uint16_t vlan;  /* 0 to 4095 */
};

/* VLAN learning modes of the switch. */
enum ddal_eth_switch_learning_mode {
    DDAL_ETH_SWITCH_LEARN_PER_VLAN = 0, /* each VLAN has its learned addresses */
    DDAL_ETH_SWITCH_LEARN_SHARED = 1    /* all VLANs share the learned addresses */
};

/* Mapping modes of a port: the field of a frame that decides its queue. */
enum ddal_eth_switch_mapping_mode { DDAL_ETH_SWITCH_MAP_PCP = 0, DDAL_ETH_SWITCH_MAP_DSCP = 1 };

/* A multicast filter: the switch sends frames to `mac` to dst_port. 12 bytes. */
struct ddal_eth_switch_multicast_filter {
    uint8_t mac[6];    /* in transmission order */
    uint16_t reserved; /* 0 */
    uint32_t dst_port; /* port of the switch */
};

/* A translation between a customer VLAN on a port and a service VLAN in the switch. 4 bytes. */
struct ddal_eth_switch_translation {
    uint16_t cvlan; /* on the port */
    uint16_t svlan; /* in the switch */
};

/*
 * Gets or sets the rate limit of a port in one direction.
 *
 * limit: kbit/s; 0 removes the limit.
 * burst: kbit.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_egress_shaping(uint32_t sw, uint32_t port, uint32_t limit, uint32_t burst);
DDAL_API int ddal_eth_switch_get_port_egress_shaping(uint32_t sw, uint32_t port, uint32_t *limit, uint32_t *burst);
DDAL_API int ddal_eth_switch_set_port_ingress_limiting(uint32_t sw, uint32_t port, uint32_t limit, uint32_t burst);
DDAL_API int ddal_eth_switch_get_port_ingress_limiting(uint32_t sw, uint32_t port, uint32_t *limit, uint32_t *burst);

/*
 * Reads or clears the numbers of packets that were dropped because a queue was full.
 *
 * counters: queues 0 to 5. The second operation clears all six.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_get_port_cos_dropped_pkts(uint32_t sw, uint32_t port, uint32_t counters[6]);
DDAL_API int ddal_eth_switch_set_port_cos_dropped_pkts(uint32_t sw, uint32_t port);

/*
 * Reads a port's counters.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_get_port_stats(uint32_t sw, uint32_t port, struct ddal_eth_switch_port_stats *stats);

/*
 * Creates or deletes an S-VLAN, adds or removes a port, and gets, sets or removes a port's default S-VLAN. A
 * port sends the frames of its S-VLANs tagged. Frames that arrive without a tag belong to the default S-VLAN.
 *
 * svlan: 0 to 20. A larger one: -EOPNOTSUPP, before the switch is asked. The switch refuses 0.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_create_svlan(uint32_t sw, uint32_t svlan);
DDAL_API int ddal_eth_switch_delete_svlan(uint32_t sw, uint32_t svlan);
DDAL_API int ddal_eth_switch_add_svlan(uint32_t sw, uint32_t port, uint32_t svlan);
DDAL_API int ddal_eth_switch_remove_svlan(uint32_t sw, uint32_t port, uint32_t svlan);
DDAL_API int ddal_eth_switch_set_default_svlan(uint32_t sw, uint32_t port, uint32_t svlan);
DDAL_API int ddal_eth_switch_get_default_svlan(uint32_t sw, uint32_t port, uint16_t *svlan);
DDAL_API int ddal_eth_switch_remove_default_svlan(uint32_t sw, uint32_t port);

/*
 * Lists the C-VLANs or S-VLANs of a port. -EINVAL: size is NULL.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_get_cvlans(uint32_t sw, uint32_t port, uint16_t *cvlans, uint32_t *size);
DDAL_API int ddal_eth_switch_get_svlans(uint32_t sw, uint32_t port, uint16_t *svlans, uint32_t *size);

/*
 * Translates a port's C-VLANs to S-VLANs and back. On one port, one C-VLAN stands for one S-VLAN. Translated frames
 * keep their PCP. Translations have an effect while translation is enabled on their port. Adding a translation does not
 * enable it. The enable and disable operations take an S-VLAN, but the switch has one state for each port: they apply
 * to all translations of the port.
 *
 * cvlan:  0 to 4095.
 * svlan:  0 to 20. The operation that adds a translation returns -EOPNOTSUPP for a larger one.
 * status: receives 0 when no translation of the port leads to the S-VLAN, 1 when one does and the port translates in
 *         both directions, 2 when one does and the port does not translate.
 *
 * -EEXIST: the C-VLAN or the S-VLAN belongs to another translation of the port.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_add_vlan_translation(uint32_t sw, uint32_t port, uint32_t cvlan, uint32_t svlan);
DDAL_API int ddal_eth_switch_remove_vlan_translation(uint32_t sw, uint32_t port, uint32_t cvlan, uint32_t svlan);
DDAL_API int ddal_eth_switch_get_vlan_translation(uint32_t sw, uint32_t port, struct ddal_eth_switch_translation *list,
                                                  uint32_t *size);
DDAL_API int ddal_eth_switch_enable_vlan_translation(uint32_t sw, uint32_t port, uint32_t svlan);
DDAL_API int ddal_eth_switch_disable_vlan_translation(uint32_t sw, uint32_t port, uint32_t svlan);
DDAL_API int ddal_eth_switch_get_vlan_translation_status_on_svlan(uint32_t sw, uint32_t port, uint32_t svlan,
                                                                  uint32_t *status);
/* Lists the translations of frames that leave the port, from S-VLANs back to C-VLANs. */
DDAL_API int ddal_eth_switch_get_egress_translations(uint32_t sw, uint32_t port,
                                                     struct ddal_eth_switch_translation *list, uint32_t *size);

/*
 * Redirects frames by rules that override the switch's forwarding, for ports 0 to 49. The rules (bcm_open.h) stay in
 * the switch after the process has ended.
 *
 * Tunnel: the two ports exchange frames with each other only, and frames of other ports do not leave by them. With an
 * ethertype, frames of that type take the tunnel, and the switch forwards all others as before. Loopback: the port
 * sends back every frame that it receives; frames of other ports still leave by it. Multicast filter: the port's frames
 * to one address go to dst_port only; a port has up to eight filters. A tunnel for all frames comes before a tunnel for
 * an ethertype, and both come before a filter.
 *
 * -EEXIST: the port is in another tunnel or loopback, or the address has a filter to another port. -ENOENT: the tunnel,
 * loopback or filter does not exist. -ENOSPC: the port has eight filters. A failed addition leaves nothing behind.
 * After a failed removal, call it again; half a tunnel does not pass frames back.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_add_multicast_filter(uint32_t sw, uint32_t port, uint32_t dst_port, const uint8_t mac[6]);
DDAL_API int ddal_eth_switch_remove_multicast_filter(uint32_t sw, uint32_t port, uint32_t dst_port,
                                                     const uint8_t mac[6]);
DDAL_API int ddal_eth_switch_get_multicast_filters(uint32_t sw, uint32_t port,
                                                   struct ddal_eth_switch_multicast_filter *list, uint32_t *size);
DDAL_API int ddal_eth_switch_enable_loopback(uint32_t sw, uint32_t port);
DDAL_API int ddal_eth_switch_disable_loopback(uint32_t sw, uint32_t port);
DDAL_API int ddal_eth_switch_get_loopback(uint32_t sw, uint32_t port, uint32_t *state);
DDAL_API int ddal_eth_switch_add_tunneling(uint32_t sw, uint32_t port1, uint32_t port2);
DDAL_API int ddal_eth_switch_add_tunneling_with_ethertype_filter(uint32_t sw, uint32_t port1, uint32_t port2,
                                                                 uint32_t ethertype);
DDAL_API int ddal_eth_switch_remove_tunneling(uint32_t sw, uint32_t port1, uint32_t port2);
DDAL_API int ddal_eth_switch_get_tunneling(uint32_t sw, uint32_t port, uint32_t *peer_port);

/*
 * Selects the port whose received clock the switch recovers, through the switch's diagnostic shell (bcmdiag.h) and with
 * its waits.
 *
 * port: 10 to 21, except 17.
 *
 * @threads safe: the last of several callers decides
 * @blocks until the diagnostic shell has answered; 3 s without data end it
 */
DDAL_API int ddal_eth_switch_set_synce_source(uint32_t sw, uint32_t port);

/*
 * Gets or sets the weights of the eight queues of a port. The port serves its queues by deficit round robin; a queue of
 * weight 0 has strict priority.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_cosq_quanta(uint32_t sw, uint32_t port, const uint32_t quanta[8]);
DDAL_API int ddal_eth_switch_get_port_cosq_quanta(uint32_t sw, uint32_t port, uint32_t quanta[8]);

/*
 * Gets or sets the mapping mode of a port, which decides the queue of a frame.
 *
 * mode: DDAL_ETH_SWITCH_MAP_DSCP maps the DSCP of a frame to its queue; every other value maps the PCP and reads back
 * as DDAL_ETH_SWITCH_MAP_PCP.
 *
 * DSCP mode puts frames without a tag into queue 7 and keeps the PCP of frames with a tag. PCP mode ends both. Setting
 * either mode enables the lookup of the DSCP of IP packets, as ddal_eth_switch_enable_qos does, so that in PCP mode the
 * DSCP map rewrites their PCP; ddal_eth_switch_disable_qos ends that. A failure leaves the mode unchanged.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_mapping_mode(uint32_t sw, uint32_t port, uint32_t mode);
DDAL_API int ddal_eth_switch_get_port_mapping_mode(uint32_t sw, uint32_t port, uint32_t *mode);

/*
 * Gets or sets the queue of one DSCP or PCP value on a port.
 *
 * dscp:  0 to 63. The map can be changed in DSCP mode only; DDAL_ERR_FAILURE: the port is in PCP mode.
 * pcp:   0 to 7.
 * queue: 0 to 7.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_mapping_dscp_to_cosq(uint32_t sw, uint32_t port, uint32_t dscp, uint32_t queue);
DDAL_API int ddal_eth_switch_get_port_mapping_dscp_to_cosq(uint32_t sw, uint32_t port, uint32_t dscp, uint32_t *queue);
DDAL_API int ddal_eth_switch_set_port_mapping_pcp_to_cosq(uint32_t sw, uint32_t port, uint32_t pcp, uint32_t queue);
DDAL_API int ddal_eth_switch_get_port_mapping_pcp_to_cosq(uint32_t sw, uint32_t port, uint32_t pcp, uint32_t *queue);

/*
 * Gets or sets the queue of frames without a tag, 0 to 7.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_default_cosq(uint32_t sw, uint32_t port, uint32_t queue);
DDAL_API int ddal_eth_switch_get_port_default_cosq(uint32_t sw, uint32_t port, uint32_t *queue);

/*
 * Enables or disables the lookup of the DSCP of IP packets on a port, or reads whether it is enabled.
 *
 * status: receives 1 or 0.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_enable_qos(uint32_t sw, uint32_t port);
DDAL_API int ddal_eth_switch_disable_qos(uint32_t sw, uint32_t port);
DDAL_API int ddal_eth_switch_get_qos_status(uint32_t sw, uint32_t port, uint32_t *status);

/*
 * Lists the learned or the static MAC addresses of a port, adds or removes a static address, or clears the learned
 * ones. Clearing keeps the static entries.
 *
 * vlan: 0 to 4095.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_get_port_learned_addrs(uint32_t sw, uint32_t port, struct ddal_eth_switch_mac_entry *list,
                                                    uint32_t *size);
DDAL_API int ddal_eth_switch_get_static_arl_entries(uint32_t sw, uint32_t port, struct ddal_eth_switch_mac_entry *list,
                                                    uint32_t *size);
DDAL_API int ddal_eth_switch_add_static_arl_entry(uint32_t sw, uint32_t port, const uint8_t mac[6], uint32_t vlan);
DDAL_API int ddal_eth_switch_remove_static_arl_entry(uint32_t sw, uint32_t port, const uint8_t mac[6], uint32_t vlan);
DDAL_API int ddal_eth_switch_clear_port_learned_arl_entries(uint32_t sw, uint32_t port);

/*
 * Gets, sets or removes the S-VLAN of frames of one ethertype that arrive without a tag, or gets or sets the VLAN
 * learning mode of the switch. An ethertype's S-VLAN takes precedence over the default S-VLAN. These operations check
 * the board before the switch number.
 *
 * ethertype: 0x600 to 0xFFFF. Any other: DDAL_ERR_FAILURE.
 * mode:      enum ddal_eth_switch_learning_mode.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_get_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype, uint16_t *svlan);
DDAL_API int ddal_eth_switch_set_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype, uint32_t svlan);
DDAL_API int ddal_eth_switch_remove_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype);
DDAL_API int ddal_eth_switch_set_vlan_learning_mode(uint32_t sw, uint32_t mode);
DDAL_API int ddal_eth_switch_get_vlan_learning_mode(uint32_t sw, uint32_t *mode);

DDAL_END_DECLS

#endif
