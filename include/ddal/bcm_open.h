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
 * of the port class of the port's number that does the reverse; both or none. remove deletes them, get and status walk
 * the ingress entries. enable and disable: -ENOSYS, the switch offers no such call; a port's translation itself must
 * have been enabled by the switch's configuration.
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
 * Default field entries, installed in this order when the switch is opened. Entries are numbered: untagged frames of a
 * port the port's number, tagged frames the port plus 50, untagged and tagged frames to a certain address the port plus
 * 100 and plus 150. Default: the entries of ports 0 to 49 are noted in the process and nothing is written to the
 * switch.
 *
 * @threads one caller at a time: the opening of the switch, once in a process
 * @blocks none
 */
DDAL_API int ddal_bcm_ifp_install_default_field_groups(void);
DDAL_API int ddal_bcm_ifp_install_default_untagged_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_tagged_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_untagged_dstmac_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_tagged_dstmac_entries(void);
DDAL_API int ddal_bcm_ifp_install_default_tunnel_drop_entry(void);

/*
 * Redirection of a port's frames to another port: all of them or those of one ethertype (0: all), or those to one
 * address. Default: add is -ENOSYS, remove and the single get are -ENOENT, exists is 0 and the list is empty.
 *
 * exists returns 1 or 0, or a negative code. A list's *size is the number that fits in, the number found out, or with
 * -ENOMEM the number that did not fit.
 *
 * @threads safe: as a product's own has to be
 * @blocks none
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
 * Brings the egress masks in line with the redirections. Default: 0.
 *
 * @threads safe: as a product's own has to be
 * @blocks none
 */
DDAL_API int ddal_bcm_ifp_egress_mask_update_all(void);

/*
 * The queue (0 to 7) of a port's frames without a tag. Default: noted in the process for ports 0 to 49; add replaces
 * the queue, removing what is not there succeeds, get is -ENOENT where no queue is set.
 *
 * @threads safe: as a product's own has to be
 * @blocks none
 */
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_add(uint32_t port, uint32_t queue);
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_remove(uint32_t port);
DDAL_API int ddal_bcm_ifp_cosq_untagged_frame_action_get(uint32_t port, uint32_t *queue);

/*
 * Keeps the PCP of a port's tagged frames. Default: noted in the process for ports 0 to 49.
 *
 * @threads safe: as a product's own has to be
 * @blocks none
 */
DDAL_API int ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(uint32_t port);
DDAL_API int ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(uint32_t port);

DDAL_END_DECLS

#endif
