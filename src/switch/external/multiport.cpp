// Ports of the external multiport switch: state, counters, VLAN map.
#include <ddal/ex_switch.h>
#include <ddal/phy.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "core/log.h"
#include "switch/external/chip.h"
#include "switch/external/speed.h"

static_assert(DDAL_EXT_MULTIPORT_PORTS == ddal::external::kPorts);

using namespace ddal::external;

namespace {

using Counters = ddal_ext_multiport_counters;

// A counter's number, or that of its lower half, and its place.
struct CounterRow {
    uint16_t number;
    bool wide;
    size_t offset;
};

#define COUNTER(number, wide, field)                                                                                   \
    {                                                                                                                  \
        number, wide, offsetof(Counters, field)                                                                        \
    }
constexpr CounterRow kCounters[] = {
    COUNTER(0x00, true, in_good_octets),  COUNTER(0x02, false, in_bad_octets), COUNTER(0x04, false, in_unicasts),
    COUNTER(0x06, false, in_broadcasts),  COUNTER(0x07, false, in_multicasts), COUNTER(0x16, false, in_pauses),
    COUNTER(0x18, false, in_undersized),  COUNTER(0x19, false, in_fragments),  COUNTER(0x1A, false, in_oversized),
    COUNTER(0x1B, false, in_jabbers),     COUNTER(0x1C, false, in_rx_errors),  COUNTER(0x1D, false, in_fcs_errors),
    COUNTER(0x0E, true, out_octets),      COUNTER(0x10, false, out_unicasts),  COUNTER(0x13, false, out_broadcasts),
    COUNTER(0x12, false, out_multicasts), COUNTER(0x15, false, out_pauses),    COUNTER(0x03, false, out_fcs_errors),
    COUNTER(0x05, false, deferred),       COUNTER(0x11, false, excessive),     COUNTER(0x14, false, single),
    COUNTER(0x17, false, multiple),       COUNTER(0x1E, false, collisions),    COUNTER(0x1F, false, late),
};
#undef COUNTER

template <typename Work>
int with_port(const char *caller, uint32_t port, Work work)
{
    if (port >= kPorts)
        return log_error_as(caller, -EINVAL, "port %u is not on the multiport switch\n", port);
    Chip chip{caller};
    const int rc = chip.open(true);
    return rc != 0 ? rc : work(chip, kPort0 + port);
}

int read_captured(Chip &chip, uint32_t number, uint32_t *value)
{
    uint16_t high = 0;
    uint16_t low = 0;
    int rc = chip.run(kGlobal1, kStatsOperation, static_cast<uint16_t>(kStatsRead | number));
    if (rc == 0)
        rc = chip.read(kGlobal1, kStatsHigh, &high);
    if (rc == 0)
        rc = chip.read(kGlobal1, kStatsLow, &low);
    *value = uint32_t{high} << 16 | low;
    return rc;
}

int read_counter(Chip &chip, const CounterRow &row, Counters *counters)
{
    uint32_t low = 0;
    uint32_t high = 0;
    int rc = read_captured(chip, row.number, &low);
    if (rc == 0 && row.wide)
        rc = read_captured(chip, row.number + 1u, &high);
    const uint64_t value = uint64_t{high} << 32 | low;
    memcpy(reinterpret_cast<char *>(counters) + row.offset, &value, sizeof value);
    return rc;
}

// Frames that the port did not let through; the port has registers for them.
int read_drops(Chip &chip, uint32_t device, Counters *counters)
{
    uint16_t words[4] = {};
    constexpr uint32_t kRegisters[] = {kPortInDiscardsLow, kPortInDiscardsHigh, kPortInFiltered, kPortOutFiltered};
    for (size_t i = 0; i < std::size(words); i++)
        if (const int rc = chip.read(device, kRegisters[i], &words[i]))
            return rc;
    counters->in_discards = uint32_t{words[1]} << 16 | words[0];
    counters->in_filtered = words[2];
    counters->out_filtered = words[3];
    return 0;
}

} // namespace

int ddal_ext_multiport_get_port_status(uint32_t port, struct ddal_ext_multiport_status *status)
{
    if (!status)
        return log_error(DDAL_ERR_FAILURE, "status is NULL\n");
    return with_port(__func__, port, [&](Chip &chip, uint32_t device) {
        uint16_t state = 0;
        uint16_t control = 0;
        int rc = chip.read(device, kPortStatus, &state);
        if (rc == 0)
            rc = chip.read(device, kPortControl, &control);
        if (rc != 0)
            return rc;
        const bool link = state & kPortLink;
        *status = {link,
                   link ? speed_of_code(state >> 8 & 3) : DDAL_PHY_UNKNOWN,
                   link ? (state & kPortFullDuplex) != 0 : DDAL_PHY_UNKNOWN,
                   (state & kPortPause) != 0,
                   (state & kPortPhyDetected) != 0,
                   static_cast<uint32_t>(state & kPortMode),
                   static_cast<uint32_t>(control & kPortState)};
        return 0;
    });
}

int ddal_ext_multiport_get_port_counters(uint32_t port, struct ddal_ext_multiport_counters *counters)
{
    if (!counters)
        return log_error(DDAL_ERR_FAILURE, "counters is NULL\n");
    return with_port(__func__, port, [&](Chip &chip, uint32_t device) {
        const auto capture = static_cast<uint16_t>(kStatsCapture | (port + 1) << 5);
        int rc = chip.run(kGlobal1, kStatsOperation, capture);
        for (const CounterRow &row : kCounters)
            rc = rc != 0 ? rc : read_counter(chip, row, counters);
        return rc != 0 ? rc : read_drops(chip, device, counters);
    });
}

int ddal_ext_multiport_get_port_vlan_map(uint32_t port, uint32_t *ports)
{
    if (!ports)
        return log_error(DDAL_ERR_FAILURE, "ports is NULL\n");
    return with_port(__func__, port, [&](Chip &chip, uint32_t device) {
        uint16_t map = 0;
        const int rc = chip.read(device, kPortVlanMap, &map);
        if (rc == 0)
            *ports = map & kPortVlanPorts;
        return rc;
    });
}

int ddal_ext_multiport_set_port_vlan_map(uint32_t port, uint32_t ports)
{
    if (ports & ~uint32_t{kPortVlanPorts})
        return log_error(-EINVAL, "ports 0x%x are not all on the multiport switch\n", ports);
    return with_port(__func__, port, [&](Chip &chip, uint32_t device) {
        uint16_t map = 0;
        const int rc = chip.read(device, kPortVlanMap, &map);
        if (rc != 0)
            return rc;
        return chip.write(device, kPortVlanMap, static_cast<uint16_t>((map & ~kPortVlanPorts) | ports));
    });
}
