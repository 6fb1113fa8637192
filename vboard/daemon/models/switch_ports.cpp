// Ports of the switch model: link, abilities, priorities, queues and counters.
#include <algorithm>

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

// The single port of a set, -1 for none or several.
int64_t only_port(const SwitchWords &in, size_t at)
{
    const PortSet ports = port_set_of(in, at);
    return ports.count() == 1 ? static_cast<int64_t>(ports._Find_first()) : -1;
}

} // namespace

SwitchWords Switch::enable_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return failed(kPort);
    port->enabled = in[2] != 0;
    settle(static_cast<uint32_t>(local_port(in[1])));
    return done();
}

SwitchWords Switch::link_status_get(const SwitchWords &in)
{
    return port_of(in[1]) ? done({has_link(static_cast<uint32_t>(local_port(in[1])))}) : failed(kPort);
}

SwitchWords Switch::ability_get(const SwitchWords &in)
{
    const Port *port = port_of(in[1]);
    return port ? done({port->half_ability, port->full_ability, port->pause_ability}) : failed(kPort);
}

SwitchWords Switch::ability_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return failed(kPort);
    port->half_ability = in[2];
    port->full_ability = in[3];
    port->pause_ability = in[4] & 0x3; // asymmetric pause can only be read
    return done();
}

SwitchWords Switch::gport_get(const SwitchWords &in)
{
    return port_of(in[1]) ? done({kLocalPort | in[1]}) : failed(kPort);
}

SwitchWords Switch::dscp_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return failed(kPort);
    if (!is_within(in[2], 63) || !is_within(in[3], 63) || !is_within(in[4], 7))
        return failed(kParameter);
    port->dscp_new[static_cast<size_t>(in[2])] = in[3];
    port->dscp_priority[static_cast<size_t>(in[2])] = in[4];
    return done();
}

SwitchWords Switch::dscp_get(const SwitchWords &in)
{
    const Port *port = port_of(in[1]);
    if (!port || !is_within(in[2], 63))
        return failed(port ? kParameter : kPort);
    return done({port->dscp_new[static_cast<size_t>(in[2])], port->dscp_priority[static_cast<size_t>(in[2])]});
}

SwitchWords Switch::drops_get(const SwitchWords &in)
{
    const Port *port = port_of(in[1]);
    if (!port || !is_within(in[2], 7) || in[3] != bcmCosqStatHOLDropPackets)
        return failed(port ? kParameter : kPort);
    return done({port->drops[static_cast<size_t>(in[2])]});
}

SwitchWords Switch::drops_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port || !is_within(in[2], 7) || in[3] != bcmCosqStatHOLDropPackets)
        return failed(port ? kParameter : kPort);
    port->drops[static_cast<size_t>(in[2])] = static_cast<uint32_t>(in[4]);
    return done();
}

SwitchWords Switch::sched_set(const SwitchWords &in)
{
    Port *port = port_of(only_port(in, 1));
    if (!port || !is_within(in[9], 6))
        return failed(port ? kParameter : kPort);
    std::array<int64_t, EgressQueues::kQueues> weights{};
    std::copy_n(in.begin() + 10, weights.size(), weights.begin());
    port->queues.schedule(in[9], weights);
    return done();
}

SwitchWords Switch::sched_get(const SwitchWords &in)
{
    const Port *port = port_of(only_port(in, 1));
    if (!port)
        return failed(kPort);
    SwitchWords out = done({port->queues.mode()});
    out.insert(out.end(), port->queues.weights().begin(), port->queues.weights().end());
    return out;
}

SwitchWords Switch::mapping_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port || !is_within(in[2], 7) || !is_within(in[3], 7))
        return failed(port ? kParameter : kPort);
    port->queue_of_priority[static_cast<size_t>(in[2])] = in[3];
    return done();
}

SwitchWords Switch::mapping_get(const SwitchWords &in)
{
    const Port *port = port_of(in[1]);
    if (!port || !is_within(in[2], 7))
        return failed(port ? kParameter : kPort);
    return done({port->queue_of_priority[static_cast<size_t>(in[2])]});
}

SwitchWords Switch::stats_get(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return failed(kPort);
    SwitchWords out = done();
    for (size_t i = 3; i < in.size(); ++i)
        out.push_back(static_cast<int64_t>(port->counters[in[i]]));
    return out;
}

} // namespace vboard
