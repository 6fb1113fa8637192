/*
 * Ethernet switch of the board.
 *
 * Served on the board with the Broadcom switch (board type 9) through the switch's user service; the first call of a
 * process that gets past its argument checks attaches to that service (loopback address, TCP port 20567). A failed
 * attachment is final: every later call fails with -1001. The attachment may take a second or two, and goes on as long
 * as the service answers "no resources"; later calls block for one exchange with the service. Needs no privilege beyond
 * that of the connection. Calls may run in parallel; the switch's client library orders them.
 *
 * Common to all operations:
 * sw:   number of the switch, 2. Any other: -ENOSYS.
 * port: port of the switch, 0 to 255. A larger one: -1001.
 *
 * Return 0 on success. -ENOSYS: another switch number or board. -1001: NULL output, a value out of range, the switch
 * cannot be opened, or the switch refused; its own error text is in the log. Outputs are unspecified after a failure
 * unless said otherwise.
 *
 * Lists: *size is the number of entries that fit, in; the number of entries, out. When more are there, as many as fit
 * are stored, *size becomes the number that did NOT fit (not the total) and the result is -ENOMEM.
 */
#ifndef DDAL_ETH_SWITCH_H
#define DDAL_ETH_SWITCH_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

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

/* An address that a port serves in a VLAN. 8 bytes. */
struct ddal_eth_switch_mac_entry {
    uint8_t mac[6]; /* in transmission order */
    uint16_t vlan;  /* 0 to 4095 */
};

/* Frames to `mac` go to dst_port. 12 bytes. */
struct ddal_eth_switch_multicast_filter {
    uint8_t mac[6];    /* in transmission order */
    uint16_t reserved; /* 0 */
    uint32_t dst_port; /* port of the switch */
};

/* The customer's VLAN on a port and the service VLAN in the switch that stands for it. 4 bytes. */
struct ddal_eth_switch_translation {
    uint16_t cvlan; /* the customer's */
    uint16_t svlan; /* in the switch */
};

/*
 * Rates: limit in kbit/s, burst in kbit, as the switch takes them; limit 0 is no limit.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_egress_shaping(uint32_t sw, uint32_t port, uint32_t limit, uint32_t burst);
DDAL_API int ddal_eth_switch_get_port_egress_shaping(uint32_t sw, uint32_t port, uint32_t *limit, uint32_t *burst);
DDAL_API int ddal_eth_switch_set_port_ingress_limiting(uint32_t sw, uint32_t port, uint32_t limit, uint32_t burst);
DDAL_API int ddal_eth_switch_get_port_ingress_limiting(uint32_t sw, uint32_t port, uint32_t *limit, uint32_t *burst);

/*
 * Packets dropped because a queue was full: queues 0 to 5. The second call clears all six.
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
 * S-VLANs: svlan is 0 to 20, checked before the switch is asked. A larger one: -EOPNOTSUPP. The switch knows 0 as no
 * VLAN and refuses it. A port sends the frames of its S-VLANs tagged. The default S-VLAN is that of the frames that
 * come in without a tag.
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
 * Lists of a port's VLANs. Also -EINVAL: size is NULL.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_get_cvlans(uint32_t sw, uint32_t port, uint16_t *cvlans, uint32_t *size);
DDAL_API int ddal_eth_switch_get_svlans(uint32_t sw, uint32_t port, uint16_t *svlans, uint32_t *size);

/*
 * Translation of a port's C-VLANs (0 to 4095) to S-VLANs and back. On one port, one C-VLAN stands for one S-VLAN. The
 * S-VLAN is checked (0 to 20, -EOPNOTSUPP) when a translation is added. -EEXIST: the C-VLAN or the S-VLAN belongs to
 * another translation of the port. Translated frames keep their PCP.
 *
 * Translations have an effect while translation is enabled on their port. Adding one does not enable it. enable and
 * disable take an S-VLAN, but the switch knows the state of a port only: they hold for all its translations.
 *
 * status: 0 no translation of the port leads to the S-VLAN; 1 one does and the port translates in both directions; 2
 * one does, and the port does not translate.
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
/* What leaves the port: the S-VLANs that are turned back into C-VLANs. */
DDAL_API int ddal_eth_switch_get_egress_translations(uint32_t sw, uint32_t port,
                                                     struct ddal_eth_switch_translation *list, uint32_t *size);

/*
 * Send frames past the switch's own forwarding. They are rules in the switch (bcm_open.h), which holds them when the
 * process has ended, for ports 0 to 49.
 *
 * Tunnelling: the two ports exchange frames with each other only, and no frame of another port leaves by them. With an
 * ethertype, frames of that type take the tunnel, and all others are forwarded as before. Loopback: the port sends back
 * what it receives; frames of other ports still leave by it. A multicast filter sends the port's frames to one address
 * to dst_port, and to no other; a port has up to eight. A tunnel for all frames comes before one for an ethertype, and
 * that before a filter.
 *
 * -EEXIST: the port is in another tunnel or loopback, or the address has a filter to another port. -ENOENT: no such
 * tunnel, loopback or filter. -ENOSPC: the port has eight filters. What fails to be added leaves nothing behind. What
 * fails to be removed can be removed by another call; half a tunnel passes nothing back.
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
 * Selects the port whose received clock the switch recovers: 10 to 21 other than 17. Goes through the switch's
 * diagnostic shell (bcmdiag.h), with its waits.
 *
 * @threads safe: the last of several callers decides
 * @blocks until the diagnostic shell has answered; 3 s without data end it
 */
DDAL_API int ddal_eth_switch_set_synce_source(uint32_t sw, uint32_t port);

/*
 * Weights of the eight queues of a port, served by deficit round robin; 0 is strict priority.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_cosq_quanta(uint32_t sw, uint32_t port, const uint32_t quanta[8]);
DDAL_API int ddal_eth_switch_get_port_cosq_quanta(uint32_t sw, uint32_t port, uint32_t quanta[8]);

/*
 * What decides the queue of a frame: mode 1 its DSCP, any other mode its PCP (reported as 0). Setting DSCP mode puts
 * frames without a tag into queue 7 and keeps the PCP of frames with one; setting PCP mode ends both. Either lets the
 * switch look at the DSCP of IP packets, as ddal_eth_switch_enable_qos does, so that in PCP mode the DSCP map rewrites
 * their PCP; ddal_eth_switch_disable_qos ends that. A failure leaves the mode as it was.
 *
 * @threads safe: but two settings of one port at the same time may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_mapping_mode(uint32_t sw, uint32_t port, uint32_t mode);
DDAL_API int ddal_eth_switch_get_port_mapping_mode(uint32_t sw, uint32_t port, uint32_t *mode);

/*
 * dscp 0 to 63, pcp 0 to 7, queue 0 to 7. The DSCP map can be changed in DSCP mode only, else -1001.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_mapping_dscp_to_cosq(uint32_t sw, uint32_t port, uint32_t dscp, uint32_t queue);
DDAL_API int ddal_eth_switch_get_port_mapping_dscp_to_cosq(uint32_t sw, uint32_t port, uint32_t dscp, uint32_t *queue);
DDAL_API int ddal_eth_switch_set_port_mapping_pcp_to_cosq(uint32_t sw, uint32_t port, uint32_t pcp, uint32_t queue);
DDAL_API int ddal_eth_switch_get_port_mapping_pcp_to_cosq(uint32_t sw, uint32_t port, uint32_t pcp, uint32_t *queue);

/*
 * The queue of frames without a tag, 0 to 7.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_set_port_default_cosq(uint32_t sw, uint32_t port, uint32_t queue);
DDAL_API int ddal_eth_switch_get_port_default_cosq(uint32_t sw, uint32_t port, uint32_t *queue);

/*
 * Whether the port looks at the DSCP of frames at all. status: 1 or 0.
 *
 * @threads safe
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_eth_switch_enable_qos(uint32_t sw, uint32_t port);
DDAL_API int ddal_eth_switch_disable_qos(uint32_t sw, uint32_t port);
DDAL_API int ddal_eth_switch_get_qos_status(uint32_t sw, uint32_t port, uint32_t *status);

/*
 * Addresses: what the switch learned on a port, and what was set (vlan 0 to 4095). Clearing leaves static entries.
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
 * Get, set or remove the S-VLAN of a port's frames of one ethertype that come in without a tag (0x600 to 0xFFFF, else
 * -1001). It comes before the default S-VLAN. Get or set the VLAN learning mode: 1 all VLANs share the learned
 * addresses, 0 each has its own. The board is checked before the switch number here.
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
