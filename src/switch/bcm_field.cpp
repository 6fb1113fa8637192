// Default bodies of the field-processor operations. The SDK's field calls are not used: what only they can express is
// refused, and what the library needs for itself is kept in the process.
#include <ddal/bcm_open.h>

#include <cerrno>

#include "core/log.h"
#include "switch/field_entries.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kHighestQueue = 7;

int no_entry(const char *caller, uint32_t port)
{
    log_line_as(LOG_ERR, caller, "port %u has no field entry\n", port);
    return DDAL_ERR_FAILURE;
}

int not_expressible(const char *caller, uint32_t port, uint32_t dst_port)
{
    log_line_as(LOG_ERR, caller, "redirecting port %u to port %u needs field rules that are not available\n", port,
                dst_port);
    return -ENOSYS;
}

int no_redirection(const char *caller, uint32_t port)
{
    log_line_as(LOG_ERR, caller, "port %u is not redirected\n", port);
    return -ENOENT;
}

} // namespace

DDAL_WEAK int ddal_bcm_ifp_install_default_field_groups()
{
    return 0; // the table of entries is the one group there is
}

DDAL_WEAK int ddal_bcm_ifp_install_default_untagged_entries()
{
    field_entries().install(kUntagged);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_install_default_tagged_entries()
{
    field_entries().install(kTagged);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_install_default_untagged_dstmac_entries()
{
    field_entries().install(kUntaggedAddress);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_install_default_tagged_dstmac_entries()
{
    field_entries().install(kTaggedAddress);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_install_default_tunnel_drop_entry()
{
    return 0; // nothing to drop: no frame is ever tunnelled by these bodies
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_add(uint32_t port, uint32_t dst_port, uint32_t)
{
    return not_expressible(__func__, port, dst_port);
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_remove(uint32_t port, uint32_t)
{
    return no_redirection(__func__, port);
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_exists(uint32_t, uint32_t)
{
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_redirect_frame_action_get(uint32_t port, uint32_t *)
{
    return no_redirection(__func__, port);
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_add(uint32_t port, uint32_t dst_port, const uint8_t *)
{
    return not_expressible(__func__, port, dst_port);
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_remove(uint32_t port, uint32_t, const uint8_t *)
{
    return no_redirection(__func__, port);
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_exists(uint32_t, uint32_t, const uint8_t *)
{
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_dstmac_filtered_redirect_frame_action_get(uint32_t,
                                                                     struct ddal_eth_switch_multicast_filter *,
                                                                     uint32_t *size)
{
    *size = 0;
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_egress_mask_update_all()
{
    return 0; // masks follow redirections, and there are none
}

DDAL_WEAK int ddal_bcm_ifp_cosq_untagged_frame_action_add(uint32_t port, uint32_t queue)
{
    if (queue > kHighestQueue)
        return log_error(DDAL_ERR_FAILURE, "invalid queue %u\n", queue);
    if (!field_entries().is_installed(kUntagged, port))
        return no_entry(__func__, port);
    field_entries().set_queue(port, queue);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_cosq_untagged_frame_action_remove(uint32_t port)
{
    if (!field_entries().is_installed(kUntagged, port))
        return no_entry(__func__, port);
    field_entries().set_queue(port, std::nullopt);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_cosq_untagged_frame_action_get(uint32_t port, uint32_t *queue)
{
    const bool installed = field_entries().is_installed(kUntagged, port);
    const auto found = installed ? field_entries().queue(port) : std::nullopt;
    if (!found)
        return -ENOENT; // no fault, no log line: the port then uses the switch's own default
    *queue = *found;
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(uint32_t port)
{
    if (!field_entries().is_installed(kTagged, port))
        return no_entry(__func__, port);
    field_entries().set_preserves_pcp(port, true);
    return 0;
}

DDAL_WEAK int ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(uint32_t port)
{
    if (!field_entries().is_installed(kTagged, port))
        return no_entry(__func__, port);
    field_entries().set_preserves_pcp(port, false);
    return 0;
}
