// Rates, queue weights and counters of the switch's ports.
#include <ddal/bcm.h>
#include <ddal/eth_switch.h>

#include <iterator>

#include "switch/broadcom/port.h"
#include "switch/broadcom/port_bitmap.h"

using namespace ddal::ethswitch;

namespace {

constexpr int kQueuesWithCounters = 6;
constexpr int kQueues = 8;
constexpr uint32_t kHighestWeight = INT32_MAX;

// Each row adds one counter of the switch to one field of the record.
struct CounterField {
    bcm_stat_val_t counter;
    uint64_t ddal_eth_switch_port_stats::*field;
};

constexpr CounterField kCounterFields[] = {
    {snmpIfHCInOctets, &ddal_eth_switch_port_stats::rx_octets},
    {snmpIfHCInUcastPkts, &ddal_eth_switch_port_stats::rx_packets},
    {snmpIfHCInMulticastPkts, &ddal_eth_switch_port_stats::rx_packets},
    {snmpIfHCInBroadcastPkts, &ddal_eth_switch_port_stats::rx_packets},
    {snmpIfInErrors, &ddal_eth_switch_port_stats::rx_errors},
    {snmpIfInDiscards, &ddal_eth_switch_port_stats::rx_dropped},
    {snmpIfHCOutOctets, &ddal_eth_switch_port_stats::tx_octets},
    {snmpIfHCOutUcastPkts, &ddal_eth_switch_port_stats::tx_packets},
    {snmpIfHCOutMulticastPkts, &ddal_eth_switch_port_stats::tx_packets},
    {snmpIfHCOutBroadcastPkts, &ddal_eth_switch_port_stats::tx_packets},
    {snmpIfOutErrors, &ddal_eth_switch_port_stats::tx_errors},
    {snmpIfOutDiscards, &ddal_eth_switch_port_stats::tx_dropped},
};
constexpr int kCounters = std::size(kCounterFields);

static_assert(sizeof(ddal_eth_switch_port_stats) == 64);

} // namespace

int ddal_bcm_port_egress_shaping_set(uint32_t port, uint32_t limit, uint32_t burst)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_rate_egress_set, limit, burst) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting egress shaping failed on port %u\n", port);
    return 0;
}

int ddal_bcm_port_egress_shaping_get(uint32_t port, uint32_t *limit, uint32_t *burst)
{
    if (open_port_for(__func__, port, limit && burst, "pointers to limit or burst cannot be null") != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_rate_egress_get, limit, burst) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting egress shaping failed on port %u\n", port);
    return 0;
}

int ddal_bcm_port_ingress_limiting_set(uint32_t port, uint32_t limit, uint32_t burst)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_rate_ingress_set, limit, burst) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting ingress limiting failed on port %u\n", port);
    return 0;
}

int ddal_bcm_port_ingress_limiting_get(uint32_t port, uint32_t *limit, uint32_t *burst)
{
    if (open_port_for(__func__, port, limit && burst, "pointers to limit or burst cannot be null") != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_port_rate_ingress_get, limit, burst) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting ingress limiting failed on port %u\n", port);
    return 0;
}

int ddal_bcm_cos_dropped_pkts_get(uint32_t port, uint32_t counters[6])
{
    if (open_port_for(__func__, port, counters, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    int gport = 0;
    int rv = sdk_on_port(port, bcm_port_gport_get, &gport);
    for (int queue = 0; rv == BCM_E_NONE && queue < kQueuesWithCounters; queue++)
        rv = sdk_on_unit(bcm_cosq_stat_sync_get32, gport, queue, bcmCosqStatHOLDropPackets, &counters[queue]);
    return rv == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Getting CoS dropped packets failed on port %u\n", port);
}

int ddal_bcm_cos_dropped_pkts_set(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    int gport = 0;
    int rv = sdk_on_port(port, bcm_port_gport_get, &gport);
    for (int queue = 0; rv == BCM_E_NONE && queue < kQueuesWithCounters; queue++)
        rv = sdk_on_unit(bcm_cosq_stat_set32, gport, queue, bcmCosqStatHOLDropPackets, 0);
    return rv == 0 ? 0 : log_error(DDAL_ERR_FAILURE, "Clearing CoS dropped packets failed on port %u\n", port);
}

int ddal_bcm_port_stats_get(uint32_t port, struct ddal_eth_switch_port_stats *stats)
{
    if (open_port_for(__func__, port, stats, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    bcm_stat_val_t counters[kCounters];
    uint64_t values[kCounters] = {};
    for (int i = 0; i < kCounters; i++)
        counters[i] = kCounterFields[i].counter;
    if (sdk_on_port(port, bcm_stat_multi_get, kCounters, counters, values) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting statistics failed on port %u\n", port);

    *stats = {};
    for (int i = 0; i < kCounters; i++)
        stats->*kCounterFields[i].field += values[i];
    return 0;
}

int ddal_bcm_set_port_cosq_quanta(uint32_t port, const uint32_t quanta[8])
{
    if (check_port(__func__, port) != 0 || check_given(__func__, quanta) != 0)
        return DDAL_ERR_FAILURE;

    int weights[kQueues];
    for (int queue = 0; queue < kQueues; queue++) {
        if (quanta[queue] > kHighestWeight)
            return log_error(DDAL_ERR_FAILURE, "quanta of queue %d is too large: %u\n", queue, quanta[queue]);
        weights[queue] = static_cast<int>(quanta[queue]);
    }
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_unit(bcm_cosq_port_sched_set, bitmap_of(port), BCM_COSQ_DEFICIT_ROUND_ROBIN, weights, 0) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting cosq quanta failed on port %u\n", port);
    return 0;
}

int ddal_bcm_get_port_cosq_quanta(uint32_t port, uint32_t quanta[8])
{
    if (open_port_for(__func__, port, quanta, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    int mode = 0;
    int weights[kQueues] = {};
    int delay = 0;
    if (sdk_on_unit(bcm_cosq_port_sched_get, bitmap_of(port), &mode, weights, &delay) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting cosq quanta failed on port %u\n", port);
    for (int queue = 0; queue < kQueues; queue++)
        quanta[queue] = static_cast<uint32_t>(weights[queue]);
    return 0;
}
