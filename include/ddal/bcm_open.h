/*
 * Broadcom switch: operations that a product can replace.
 *
 * Every name here is a weak symbol with a working default. A product that knows its field processor, its VLAN plan or
 * its translation rules defines the names that it supplies, in its program or in a library that is loaded before this
 * one. Each operation returns 0 on success and any other value on failure, unless its text says otherwise. The defaults
 * reach the switch as the operations of bcm.h do and may be called from any thread. The library calls the installers
 * while it opens the switch; they must not call operations of bcm.h.
 */
#ifndef DDAL_BCM_OPEN_H
#define DDAL_BCM_OPEN_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

struct ddal_eth_switch_multicast_filter;
struct ddal_eth_switch_translation;

/*
 * Creates or removes an S-VLAN, or adds or removes a port. Default: an S-VLAN is the VLAN of the same number in the
 * switch, and ports join it tagged.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_svlan_create(uint32_t svlan);
DDAL_API int ddal_bcm_svlan_remove(uint32_t svlan);
DDAL_API int ddal_bcm_svlan_port_add(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_svlan_port_remove(uint32_t port, uint32_t svlan);

/*
 * Translates between a port's C-VLANs and the S-VLANs of the switch, as the operations of eth_switch.h.
 *
 * Default: adding a translation creates an ingress entry that replaces the tag of the C-VLAN by that of the S-VLAN, and
 * an egress entry for the port class of the port's number that does the reverse. It creates both or none; if a process
 * ended between the two entries, the next addition creates the missing one. Removing a translation deletes the entries
 * that exist. Listing reads the ingress entries. Enabling and disabling switch both directions of the port, for all its
 * translations. Frames keep their PCP. -EEXIST: the C-VLAN or the S-VLAN belongs to another translation of the port.
 *
 * @threads safe: a replacement has to be safe too; two changes of one translation may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_vlan_translation_add(uint32_t port, uint32_t cvlan, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_remove(uint32_t port, uint32_t cvlan, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_get(uint32_t port, struct ddal_eth_switch_translation *list, uint32_t *size);
DDAL_API int ddal_bcm_vlan_translation_enable(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_disable(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_status_on_svlan(uint32_t port, uint32_t svlan, uint32_t *status);

/*
 * Installs the default field groups and entries. The library calls them in this order while it opens the switch.
 *
 * An untagged entry matches the frames of one port without a tag, and its number is the port's. A tagged entry matches
 * the frames with a tag; its number is the port plus 50. The entries for one destination address have the numbers port
 * plus 100 (untagged) and port plus 150 (tagged).
 *
 * Default: creates groups 1 to 5 and, for each of ports 0 to 49 that the switch has, the four entries. They do not have
 * actions and are not in the hardware until they get one. An installer takes over existing groups and entries, and
 * completes those that a process left unfinished. A failed installer removes what it created.
 *
 * The tunnel drop entry, number 200, drops frames that arrive at the far end of a tunnel while no rule leads back. The
 * switch would forward them as usual otherwise, and they could enter the tunnel again from its other end. A switch that
 * cannot match several ports does not get this entry; egress masks do its work there.
 *
 * @threads one caller at a time: the opening of the switch, once in a process
 * @blocks exchanges: with the switch's service, some for each port
 */
DDAL_API int ddal_bcm_ifp_install_default_field_groups(void);
DDAL_API int ddal_bcm_ifp_install_default_untagged_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_tagged_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_untagged_dstmac_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_tagged_dstmac_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_tunnel_drop_entry(void);

/*
 * Redirects a port's frames to another port, ends that, or reads it: all frames, those of one ethertype (0: all), or
 * those to one MAC address.
 *
 * Default: a redirection is an action of the port's two entries, for frames without and with a tag; both have it or
 * none. The entry of one ethertype has the number port plus 250. The first address of a port uses its default entries;
 * seven more use entries from number 400 on. A port has one redirection besides those of addresses, and it takes
 * precedence over them. Redirected frames leave the other port even in VLANs that it does not carry.
 *
 * size: the number of entries that fit into the list; receives the number found, or with -ENOMEM the number that did
 * not fit.
 *
 * -ENOENT: the redirection does not exist. -EEXIST: the port or the address is redirected to another port. -ENOSPC: the
 * port has eight addresses. The exists operations return 1 or 0, or a negative code.
 *
 * @threads safe: a replacement has to be safe too; two changes of one port may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_ifp_redirect_frame_action_add(uint32_t port, uint32_t dst_port, uint32_t ethertype);
DDAL_API int ddal_bcm_ifp_redirect_frame_action_remove(uint32_t port, uint32_t dst_port);
DDAL_API int ddal_bcm_ifp_redirect_frame_action_exists(uint32_t port, uint32_t dst_port);
DDAL_API int ddal_bcm_ifp_redirect_frame_action_get(uint32_t port, uint32_t *dst_port);
DDAL_API int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_add(uint32_t port, uint32_t dst_port,
                                                                    const uint8_t mac[6]);
DDAL_API int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_remove(uint32_t port, uint32_t dst_port,
                                                                       const uint8_t mac[6]);
DDAL_API int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_exists(uint32_t port, uint32_t dst_port,
                                                                       const uint8_t mac[6]);
DDAL_API int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_get(uint32_t port,
                                                                    struct ddal_eth_switch_multicast_filter *list,
                                                                    uint32_t *size);

/*
 * Updates the egress masks from the redirections. Default: reads the redirections of all frames from the switch, except
 * those of a port to itself. Entry 201 keeps the frames of all ports out of the tunnelled ports. Entry 300 plus the
 * port keeps the frames of a tunnelled port out of all ports but its peer. The tunnel drop entry gets the ports from
 * which no rule leads back. Without tunnels these entries do not exist.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks exchanges: with the switch's service, one for each port and some for each tunnel
 */
DDAL_API int ddal_bcm_ifp_egress_mask_update_all(void);

/*
 * Sets, removes or gets the queue of a port's frames without a tag. Default: an action of the port's untagged entry,
 * which overrides priority and maps. Setting replaces the queue. Removing succeeds when no queue is set.
 *
 * queue: 0 to 7.
 *
 * -ENOENT: getting found no queue.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_add(uint32_t port, uint32_t queue);
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_remove(uint32_t port);
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_get(uint32_t port, uint32_t *queue);

/*
 * Keeps the PCP of a port's tagged frames where the DSCP map would rewrite it, or ends that. Default: the action
 * bcmFieldActionPrioPktCancel of the port's tagged entry. The library tells DSCP mapping from PCP mapping by this
 * action: a replacement has to set and remove it as well.
 *
 * @threads safe: a replacement has to be safe too
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(uint32_t port);
DDAL_API int ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(uint32_t port);

DDAL_END_DECLS

#endif
