// Frames that bypass the switch's forwarding: loopback, tunnelling between two ports and multicast filters.
#include <ddal/bcm.h>
#include <ddal/bcm_open.h>

#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kAnyEthertype = 0;

// Removes a tunnel or half of one. Updates the masks even without either half, because an earlier removal may have
// failed at them.
int end_tunnel(uint32_t port1, uint32_t port2)
{
    const int back = ddal_bcm_ifp_redirect_frame_action_exists(port2, port1);
    const int there = back < 0 ? back : ddal_bcm_ifp_redirect_frame_action_exists(port1, port2);
    if (there < 0)
        return there;
    int rc = back ? ddal_bcm_ifp_redirect_frame_action_remove(port2, port1) : 0;
    if (rc == 0 && (there || !back))
        rc = ddal_bcm_ifp_redirect_frame_action_remove(port1, port2);
    const int masks = ddal_bcm_ifp_egress_mask_update_all();
    return rc != 0 ? rc : masks;
}

} // namespace

int ddal_bcm_loopback_add(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(ddal_bcm_ifp_redirect_frame_action_add(port, port, kAnyEthertype),
                       "Adding loopback failed on port %u\n", port);
}

int ddal_bcm_loopback_remove(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(ddal_bcm_ifp_redirect_frame_action_remove(port, port), "Removing loopback failed on port %u\n",
                       port);
}

int ddal_bcm_loopback_get(uint32_t port, uint32_t *state)
{
    if (open_port_for(__func__, port, state, "state is NULL") != 0)
        return DDAL_ERR_FAILURE;
    const int rc = ddal_bcm_ifp_redirect_frame_action_exists(port, port);
    if (rc < 0)
        return log_error(rc, "Getting loopback failed on port %u\n", port);
    *state = rc != 0;
    return 0;
}

int ddal_bcm_tunneling_set(uint32_t port1, uint32_t port2, uint32_t ethertype)
{
    if (check_port(__func__, port1) != 0 || check_port(__func__, port2) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    int rc = ddal_bcm_ifp_redirect_frame_action_add(port1, port2, ethertype);
    if (rc == 0) {
        rc = ddal_bcm_ifp_redirect_frame_action_add(port2, port1, ethertype);
        if (rc != 0)
            ddal_bcm_ifp_redirect_frame_action_remove(port1, port2);
    }
    if (rc == 0) {
        rc = ddal_bcm_ifp_egress_mask_update_all();
        if (rc != 0)
            end_tunnel(port1, port2);
    }
    return log_failure(rc, "Adding tunneling failed on ports %u and %u\n", port1, port2);
}

int ddal_bcm_tunneling_remove(uint32_t port1, uint32_t port2)
{
    if (check_port(__func__, port1) != 0 || check_port(__func__, port2) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(end_tunnel(port1, port2), "Removing tunneling failed on ports %u and %u\n", port1, port2);
}

int ddal_bcm_tunneling_get(uint32_t port, uint32_t *peer_port)
{
    if (open_port_for(__func__, port, peer_port, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(ddal_bcm_ifp_redirect_frame_action_get(port, peer_port), "Getting tunneling failed on port %u\n",
                       port);
}

int ddal_bcm_dstmac_filtered_tunneling_set(uint32_t port, uint32_t dst_port, const uint8_t mac[6])
{
    if (check_port(__func__, port) != 0 || check_port(__func__, dst_port) != 0 || check_given(__func__, mac) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_add(port, dst_port, mac),
                       "Adding multicast filter failed on port %u\n", port);
}

int ddal_bcm_dstmac_filtered_tunneling_remove(uint32_t port, uint32_t dst_port, const uint8_t mac[6])
{
    if (check_port(__func__, port) != 0 || check_port(__func__, dst_port) != 0 || check_given(__func__, mac) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_remove(port, dst_port, mac),
                       "Removing multicast filter failed on port %u\n", port);
}

int ddal_bcm_dstmac_filtered_tunneling_get(uint32_t port, struct ddal_eth_switch_multicast_filter *list, uint32_t *size)
{
    if (check_port(__func__, port) != 0 || check_list(__func__, list, size) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    return log_failure(ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_get(port, list, size),
                       "Getting multicast filters failed on port %u\n", port);
}
