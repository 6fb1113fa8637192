// Front end of the switch: rates, counters, queues and the clock source of its ports.
#include "switch/front/eth_switch.h"

#include <ddal/bcm.h>
#include <ddal/eth_switch.h>
#include <ddal/unit.h>

#include <cerrno>

#include "core/log.h"
#include "identity/boards.h"

namespace ddal::ethswitch {

namespace {

constexpr uint32_t kServedSwitch = 2;
constexpr uint32_t kHighestSvlan = 20;

} // namespace

int verify_broadcom_support()
{
    const int board = ddal_unit_get_board();
    if (!identity::board_of_type(board).broadcom_switch)
        return log_error(-ENOSYS, "Board %d does not support Broadcom switch\n", board);
    return 0;
}

int admit(const char *caller, uint32_t sw)
{
    if (sw == kServedSwitch)
        return verify_broadcom_support();
    return log_error_as(caller, -ENOSYS, "unsupported switch device %d\n", static_cast<int>(sw));
}

int admit_board_first(const char *caller, uint32_t sw)
{
    const int rc = verify_broadcom_support();
    if (rc != 0 || sw == kServedSwitch)
        return rc;
    return log_error_as(caller, -ENOSYS, "switch type: %d is not supported\n", static_cast<int>(sw));
}

int admit_svlan(const char *caller, int refusal, uint32_t svlan)
{
    if (refusal != 0 || svlan <= kHighestSvlan)
        return refusal;
    return log_error_as(caller, -EOPNOTSUPP, "S-VLAN %u is not supported (max S-VLAN ID = %u)\n", svlan, kHighestSvlan);
}

} // namespace ddal::ethswitch

int ddal_eth_switch_set_port_egress_shaping(uint32_t sw, uint32_t port, uint32_t limit, uint32_t burst)
{
    return on_switch(sw, ddal_bcm_port_egress_shaping_set(port, limit, burst), "port %u egress shaping set error\n",
                     port);
}

int ddal_eth_switch_set_port_ingress_limiting(uint32_t sw, uint32_t port, uint32_t limit, uint32_t burst)
{
    return on_switch(sw, ddal_bcm_port_ingress_limiting_set(port, limit, burst), "port %u ingress limiting set error\n",
                     port);
}

int ddal_eth_switch_get_port_egress_shaping(uint32_t sw, uint32_t port, uint32_t *limit, uint32_t *burst)
{
    return on_switch(sw, ddal_bcm_port_egress_shaping_get(port, limit, burst), "port %u egress shaping get error\n",
                     port);
}

int ddal_eth_switch_get_port_ingress_limiting(uint32_t sw, uint32_t port, uint32_t *limit, uint32_t *burst)
{
    return on_switch(sw, ddal_bcm_port_ingress_limiting_get(port, limit, burst), "port %u ingress limiting get error\n",
                     port);
}

int ddal_eth_switch_get_port_cos_dropped_pkts(uint32_t sw, uint32_t port, uint32_t counters[6])
{
    return on_switch(sw, ddal_bcm_cos_dropped_pkts_get(port, counters), "port %u CoS dropped packets get error\n",
                     port);
}

int ddal_eth_switch_set_port_cos_dropped_pkts(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_cos_dropped_pkts_set(port), "port %u CoS dropped packets set error\n", port);
}

int ddal_eth_switch_get_port_stats(uint32_t sw, uint32_t port, struct ddal_eth_switch_port_stats *stats)
{
    return on_switch(sw, ddal_bcm_port_stats_get(port, stats), "port %u statistics get error\n", port);
}

int ddal_eth_switch_set_synce_source(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_set_synce_source(port), "Setting synce source to port %u error\n", port);
}

int ddal_eth_switch_set_port_cosq_quanta(uint32_t sw, uint32_t port, const uint32_t quanta[8])
{
    return on_switch(sw, ddal_bcm_set_port_cosq_quanta(port, quanta), "Setting cosq quanta error on port %u\n", port);
}

int ddal_eth_switch_get_port_cosq_quanta(uint32_t sw, uint32_t port, uint32_t quanta[8])
{
    return on_switch(sw, ddal_bcm_get_port_cosq_quanta(port, quanta), "Getting cosq quanta error on port %u\n", port);
}

int ddal_eth_switch_set_port_mapping_mode(uint32_t sw, uint32_t port, uint32_t mode)
{
    return on_switch(sw, ddal_bcm_set_mapping_mode(port, mode), "Setting mapping mode error on port %u\n", port);
}

int ddal_eth_switch_get_port_mapping_mode(uint32_t sw, uint32_t port, uint32_t *mode)
{
    return on_switch(sw, ddal_bcm_get_mapping_mode(port, mode), "Getting mapping mode error on port %u\n", port);
}

int ddal_eth_switch_set_port_mapping_dscp_to_cosq(uint32_t sw, uint32_t port, uint32_t dscp, uint32_t queue)
{
    return on_switch(sw, ddal_bcm_set_dscp_to_queue_mapping(port, dscp, queue),
                     "Setting DSCP to cosq mapping error on port %u\n", port);
}

int ddal_eth_switch_set_port_mapping_pcp_to_cosq(uint32_t sw, uint32_t port, uint32_t pcp, uint32_t queue)
{
    return on_switch(sw, ddal_bcm_set_pcp_to_queue_mapping(port, pcp, queue),
                     "Setting PCP to cosq mapping error on port %u\n", port);
}

int ddal_eth_switch_get_port_mapping_dscp_to_cosq(uint32_t sw, uint32_t port, uint32_t dscp, uint32_t *queue)
{
    return on_switch(sw, ddal_bcm_get_dscp_to_queue_mapping(port, dscp, queue),
                     "Getting DSCP to cosq mapping error on port %u\n", port);
}

int ddal_eth_switch_get_port_mapping_pcp_to_cosq(uint32_t sw, uint32_t port, uint32_t pcp, uint32_t *queue)
{
    return on_switch(sw, ddal_bcm_get_pcp_to_queue_mapping(port, pcp, queue),
                     "Getting PCP to cosq mapping error on port %u\n", port);
}

int ddal_eth_switch_set_port_default_cosq(uint32_t sw, uint32_t port, uint32_t queue)
{
    return on_switch(sw, ddal_bcm_set_default_queue(port, queue), "Setting default cosq error on port %u\n", port);
}

int ddal_eth_switch_get_port_default_cosq(uint32_t sw, uint32_t port, uint32_t *queue)
{
    return on_switch(sw, ddal_bcm_get_default_queue(port, queue), "Getting default cosq error on port %u\n", port);
}

int ddal_eth_switch_enable_qos(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_qos_enable(port), "Enabling QoS port %u error\n", port);
}

int ddal_eth_switch_disable_qos(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_qos_disable(port), "Disabling QoS port %u error\n", port);
}

int ddal_eth_switch_get_qos_status(uint32_t sw, uint32_t port, uint32_t *status)
{
    return on_switch(sw, ddal_bcm_qos_status(port, status), "Getting QoS status port %u error\n", port);
}
