/*
 * Broadcom switch: operations that a product may replace.
 *
 * Every name here is a weak symbol with a working default; a product that knows its field processor, its VLAN plan or
 * its translation rules defines the names it wants to supply in its program or in a library that is loaded before this
 * one. Each returns 0 on success and any other value on failure, unless said otherwise. Defaults reach the switch as
 * the operations of bcm.h do and may be called from any thread; the installers are called while the switch is being
 * opened and must not call operations of bcm.h.
 */
#ifndef DDAL_BCM_OPEN_H
#define DDAL_BCM_OPEN_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

struct ddal_eth_switch_multicast_filter;
struct ddal_eth_switch_translation;

/*
 * S-VLANs. Default: the VLAN of the same number in the switch; ports join tagged.
 *
 * @threads safe: as a product's own has to be, for it is called from any thread
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_svlan_create(uint32_t svlan);
DDAL_API int ddal_bcm_svlan_remove(uint32_t svlan);
DDAL_API int ddal_bcm_svlan_port_add(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_svlan_port_remove(uint32_t port, uint32_t svlan);

/*
 * Translation. Default: add makes an ingress entry that replaces the C-VLAN's tag by the S-VLAN's, and an egress entry
 * of the port class of the port's number that does the reverse; both or none. Frames keep their PCP. -EEXIST: the
 * C-VLAN or the S-VLAN belongs to another translation of the port. An add after a process that ended between the two
 * entries adds the missing one. remove deletes what there is of the two; get walks the ingress entries. enable and
 * disable switch both directions of the port, for all its translations; add leaves that as it is.
 *
 * @threads safe: as a product's own has to be; two changes of one translation may mix
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_vlan_translation_add(uint32_t port, uint32_t cvlan, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_remove(uint32_t port, uint32_t cvlan, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_get(uint32_t port, struct ddal_eth_switch_translation *list, uint32_t *size);
DDAL_API int ddal_bcm_vlan_translation_enable(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_disable(uint32_t port, uint32_t svlan);
DDAL_API int ddal_bcm_vlan_translation_status_on_svlan(uint32_t port, uint32_t svlan, uint32_t *status);

/*
 * Install the default field entries, in this order when the switch is opened. Entries are numbered: untagged frames of
 * a port the port's number, tagged frames the port plus 50, untagged and tagged frames to a certain address the port
 * plus 100 and plus 150. Default: creates groups 1 to 5 and, for each of ports 0 to 49 that the switch has, the entries
 * in the switch, which match the port and whether a frame has a tag. They have no actions and are not in the hardware
 * until they get one. Groups and entries that exist are taken over, and finished where their process did not. An
 * installer that fails removes what it created.
 *
 * The tunnel drop entry, number 200, drops what comes in at the far end of a tunnel while nothing leads back: forwarded
 * as usual, such frames could come back into the tunnel from its own end. A switch without a qualifier for several
 * ports lacks this entry: egress masks do its work there.
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
 * Redirect a port's frames to another port: all of them or those of one ethertype (0: all), or those to one address.
 * Default: an action of the port's entries, for frames without and with a tag; both or none. Frames of one ethertype
 * have an entry 250 plus the port. A port's first address uses its default entries, seven more have entries from 400
 * on. A port has one redirection beside its addresses; it comes before them. Redirected frames leave in VLANs that the
 * other port does not carry, too.
 *
 * -ENOENT: nothing to remove or get. -EEXIST: the port, or the address, is redirected to another port. -ENOSPC: the
 * port has eight addresses. exists returns 1 or 0, or a negative code. A list's *size is the number that fits in, the
 * number found out, or with -ENOMEM the number that did not fit.
 *
 * @threads safe: as a product's own has to be; two changes of one port may mix
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
 * Brings the egress masks in line with the redirections. Default: reads the redirections of all frames from the switch,
 * those of a port to itself aside. Entry 201 keeps the frames of all ports out of the tunnelled ports, an entry 300
 * plus the port those of a tunnelled port out of all ports but its peer. The tunnel drop entry gets the ports from
 * which nothing leads back. Without tunnels there are no such entries.
 *
 * @threads safe: as a product's own has to be
 * @blocks exchanges: with the switch's service, one for each port and some for each tunnel
 */
DDAL_API int ddal_bcm_ifp_egress_mask_update_all(void);

/*
 * Set, remove or get the queue (0 to 7) of a port's frames without a tag. Default: an action of the port's untagged
 * entry, which overrides what priority and maps say. add replaces the queue, removing what is not there succeeds, get
 * is -ENOENT where no queue is set.
 *
 * @threads safe: as a product's own has to be
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_add(uint32_t port, uint32_t queue);
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_remove(uint32_t port);
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_get(uint32_t port, uint32_t *queue);

/*
 * Keep the PCP of a port's tagged frames where the DSCP map would rewrite it, or end that. Default: the action
 * bcmFieldActionPrioPktCancel of the port's tagged entry. Its presence is what tells DSCP mapping from PCP mapping: a
 * product's own operations have to set and remove this action as well.
 *
 * @threads safe: as a product's own has to be
 * @blocks exchanges: with the switch's service; the first of the process attaches to it
 */
DDAL_API int ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(uint32_t port);
DDAL_API int ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(uint32_t port);

DDAL_END_DECLS

#endif
