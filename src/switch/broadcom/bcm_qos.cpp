// Mapping of priorities to queues: mapping mode, DSCP and PCP maps, default queue.
#include <ddal/bcm.h>
#include <ddal/bcm_open.h>

#include <cerrno>
#include <optional>

#include "switch/broadcom/port.h"
#include "switch/broadcom/priority_rules.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kDscpMode = 1; // any other value: PCP mapping
constexpr uint32_t kPcpMode = 0;  // the getter reports this value
constexpr uint32_t kDscpModeUntaggedQueue = 7;
constexpr uint32_t kHighestQueue = 7;
constexpr uint32_t kHighestDscp = 63;
constexpr uint32_t kHighestPcp = 7;

// The field actions that distinguish the mapping modes.
struct ModeActions {
    bool preserves_pcp = false;
    std::optional<uint32_t> queue; // of untagged frames
};

int read_actions(uint32_t port, ModeActions *actions)
{
    if (const int rv = read_preserves_pcp(port, &actions->preserves_pcp); rv != 0)
        return rv;
    uint32_t queue = 0;
    const int rc = ddal_bcm_ifp_cosq_untagged_frame_action_get(port, &queue);
    if (rc == 0)
        actions->queue = queue;
    return rc == -ENOENT ? 0 : rc;
}

int put_queue(uint32_t port, const std::optional<uint32_t> &queue)
{
    return queue ? ddal_bcm_ifp_cosq_untagged_frame_action_add(port, *queue)
                 : ddal_bcm_ifp_cosq_untagged_frame_action_remove(port);
}

int put_actions(uint32_t port, const ModeActions &actions)
{
    const int rc = actions.preserves_pcp ? ddal_bcm_ifp_preserve_pcp_priority_frame_action_add(port)
                                         : ddal_bcm_ifp_preserve_pcp_priority_frame_action_remove(port);
    return rc != 0 ? rc : put_queue(port, actions.queue);
}

// Returns 0, or DDAL_ERR_FAILURE logged under the caller's name.
int check_at_most(const char *caller, const char *what, uint32_t value, uint32_t highest)
{
    if (value <= highest)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "invalid %s %u\n", what, value);
}

} // namespace

int ddal_bcm_set_mapping_mode(uint32_t port, uint32_t mode)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    ModeActions before;
    const ModeActions after =
        mode == kDscpMode ? ModeActions{true, kDscpModeUntaggedQueue} : ModeActions{false, std::nullopt};
    int rc = read_actions(port, &before);
    if (rc == 0) {
        rc = put_actions(port, after);
        if (rc == 0) // kept: in both modes the switch reads the DSCP
            rc = sdk_on_port(port, bcm_port_dscp_map_mode_set, BCM_PORT_DSCP_MAP_ALL);
        if (rc != 0)
            put_actions(port, before);
    }
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Setting mapping mode failed on port %u\n", port);
}

int ddal_bcm_get_mapping_mode(uint32_t port, uint32_t *mode)
{
    if (open_port_for(__func__, port, mode, "mode is NULL") != 0)
        return DDAL_ERR_FAILURE;
    bool is_dscp_mode = false;
    if (read_preserves_pcp(port, &is_dscp_mode) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting mapping mode failed on port %u\n", port);
    *mode = is_dscp_mode ? kDscpMode : kPcpMode;
    return 0;
}

int ddal_bcm_set_dscp_to_queue_mapping(uint32_t port, uint32_t dscp, uint32_t queue)
{
    if (check_port(__func__, port) != 0 || check_at_most(__func__, "DSCP", dscp, kHighestDscp) != 0 ||
        check_at_most(__func__, "queue", queue, kHighestQueue) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    bool is_dscp_mode = false;
    if (read_preserves_pcp(port, &is_dscp_mode) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting DSCP to queue mapping failed on port %u\n", port);
    if (!is_dscp_mode)
        return log_error(DDAL_ERR_FAILURE, "port %u is not in DSCP mapping mode\n", port);
    // The code point keeps its value, and priority n goes to queue n.
    if (sdk_on_port(port, bcm_port_dscp_map_set, dscp, dscp, queue) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting DSCP to queue mapping failed on port %u\n", port);
    return 0;
}

int ddal_bcm_get_dscp_to_queue_mapping(uint32_t port, uint32_t dscp, uint32_t *queue)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, queue) != 0 ||
        check_at_most(__func__, "DSCP", dscp, kHighestDscp) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    int new_dscp = 0;
    int priority = 0;
    if (sdk_on_port(port, bcm_port_dscp_map_get, dscp, &new_dscp, &priority) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting DSCP to queue mapping failed on port %u\n", port);
    *queue = static_cast<uint32_t>(priority);
    return 0;
}

int ddal_bcm_set_pcp_to_queue_mapping(uint32_t port, uint32_t pcp, uint32_t queue)
{
    if (check_port(__func__, port) != 0 || check_at_most(__func__, "PCP", pcp, kHighestPcp) != 0 ||
        check_at_most(__func__, "queue", queue, kHighestQueue) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_cosq_port_mapping_set, pcp, queue) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting PCP to queue mapping failed on port %u\n", port);
    return 0;
}

int ddal_bcm_get_pcp_to_queue_mapping(uint32_t port, uint32_t pcp, uint32_t *queue)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, queue) != 0 ||
        check_at_most(__func__, "PCP", pcp, kHighestPcp) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    int mapped = 0;
    if (sdk_on_port(port, bcm_cosq_port_mapping_get, pcp, &mapped) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting PCP to queue mapping failed on port %u\n", port);
    *queue = static_cast<uint32_t>(mapped);
    return 0;
}

int ddal_bcm_set_default_queue(uint32_t port, uint32_t queue)
{
    if (check_port(__func__, port) != 0 || check_at_most(__func__, "queue", queue, kHighestQueue) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    ModeActions before;
    int rc = read_actions(port, &before);
    if (rc == 0)
        rc = ddal_bcm_ifp_cosq_untagged_frame_action_add(port, queue);
    if (rc == 0 && before.preserves_pcp) {
        rc = sdk_on_port(port, bcm_port_untagged_priority_set, queue);
        if (rc != 0)
            put_queue(port, before.queue);
    }
    return rc == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Setting default queue failed on port %u\n", port);
}

int ddal_bcm_get_default_queue(uint32_t port, uint32_t *queue)
{
    if (open_port_for(__func__, port, queue, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;
    const int rc = ddal_bcm_ifp_cosq_untagged_frame_action_get(port, queue);
    if (rc == 0)
        return 0;

    int priority = 0;
    if (rc != -ENOENT || sdk_on_port(port, bcm_port_untagged_priority_get, &priority) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting default queue failed on port %u\n", port);
    *queue = static_cast<uint32_t>(priority);
    return 0;
}

int ddal_bcm_qos_enable(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_dscp_map_mode_set, BCM_PORT_DSCP_MAP_ALL) != 0)
        return log_error(DDAL_ERR_FAILURE, "Enabling QoS failed on port %u\n", port);
    return 0;
}

int ddal_bcm_qos_disable(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_dscp_map_mode_set, BCM_PORT_DSCP_MAP_NONE) != 0)
        return log_error(DDAL_ERR_FAILURE, "Disabling QoS failed on port %u\n", port);
    return 0;
}

int ddal_bcm_qos_status(uint32_t port, uint32_t *status)
{
    if (open_port_for(__func__, port, status, "status cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    int mode = BCM_PORT_DSCP_MAP_NONE;
    if (sdk_on_port(port, bcm_port_dscp_map_mode_get, &mode) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting QoS status failed on port %u\n", port);
    *status = mode != BCM_PORT_DSCP_MAP_NONE;
    return 0;
}
