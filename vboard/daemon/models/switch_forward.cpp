// What the switch model does with a frame: VLAN, learning, field rules, queue, rates, copies that leave.
#include <cstring>

#include "daemon/board.h"
#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr size_t kKeptCopies = 1000;
constexpr double kLargestFrameBits = 1522 * 8;
constexpr int64_t kNanoseconds = 1'000'000'000;

// The part of the SDK's action record that the model acts on.
struct VlanAction {
    explicit VlanAction(const std::array<int64_t, 20> &words)
    {
        memcpy(static_cast<void *>(&record), words.data(), sizeof words);
    }
    bcm_vlan_action_set_t record{};
};

bool decides_by_dscp(int64_t map_mode)
{
    return map_mode == BCM_PORT_DSCP_MAP_ALL;
}

} // namespace

// `rate` is limit and burst in kilobits; a bucket that holds less than a frame could never pass it.
void Switch::Bucket::fill(const std::array<int64_t, 2> &rate, int64_t now, bool frames_wait)
{
    const double room = std::max(static_cast<double>(rate[1]) * 1000, kLargestFrameBits);
    if (rate != kept_rate) {
        kept_rate = rate;
        bits = room;
    } else {
        bits += static_cast<double>(rate[0]) * 1000 * static_cast<double>(now - filled_at) /
                static_cast<double>(kNanoseconds);
        bits = frames_wait ? bits : std::min(room, bits);
    }
    filled_at = now;
}

bool Switch::Bucket::takes(uint32_t octets)
{
    if (kept_rate[0] == 0)
        return true;
    if (bits < octets * 8)
        return false;
    bits -= octets * 8;
    return true;
}

void Switch::count(Port *port, const EthernetFrame &frame, bool received)
{
    const int64_t kind = frame.is_broadcast()   ? (received ? snmpIfHCInBroadcastPkts : snmpIfHCOutBroadcastPkts)
                         : frame.is_multicast() ? (received ? snmpIfHCInMulticastPkts : snmpIfHCOutMulticastPkts)
                                                : (received ? snmpIfHCInUcastPkts : snmpIfHCOutUcastPkts);
    ++port->counters[kind];
    port->counters[received ? snmpIfHCInOctets : snmpIfHCOutOctets] += frame.length();
}

void Switch::receive(uint32_t number, const EthernetFrame &frame)
{
    Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no such port");
    if (!has_link(number))
        return; // nothing comes in
    count(port, frame, true);
    Passage passage{frame, number, 0, frame.outer ? frame.outer->pcp : port->untagged_priority};
    const FieldVerdict verdict = rules_.match(
        {number, (frame.outer ? 1 : 0) | (frame.inner ? 2 : 0) | (frame.outer && frame.outer->vlan == 0 ? 4 : 0),
         static_cast<int64_t>(frame.destination), frame.type});
    port->receiving.fill(port->ingress_rate, board().monotonic_ns(), false);
    if (!port->receiving.takes(frame.length()) || verdict.drop) {
        ++port->counters[snmpIfInDiscards];
        return;
    }
    assign_vlan(*port, &passage);
    assign_priority(*port, verdict, &passage);
    learn(passage);

    PortSet targets = verdict.redirect ? only(*verdict.redirect) : destinations(passage);
    if (verdict.mask)
        targets &= mask_keeps_ ? *verdict.mask : ~*verdict.mask;
    for (size_t target = targets._Find_first(); target < targets.size(); target = targets._Find_next(target))
        send(static_cast<uint32_t>(target), passage);
}

// Inside the switch each frame has an outer tag.
void Switch::assign_vlan(const Port &port, Passage *passage)
{
    EthernetFrame &frame = passage->frame;
    std::optional<VlanAction> action;
    if (frame.outer && frame.outer->vlan != 0) {
        passage->vlan = frame.outer->vlan;
        if (!port.is_enabled(bcmVlanTranslateIngressEnable))
            return;
        for (const int64_t name : {kLocalPort | int64_t{passage->port}, int64_t{passage->port}}) {
            const auto found = translations_.find({name, bcmVlanTranslateKeyPortOuter, passage->vlan, 0});
            if (found != translations_.end())
                action.emplace(found->second.action);
        }
        if (action && (frame.inner ? action->record.dt_outer : action->record.ot_outer) == bcmVlanActionReplace)
            passage->vlan = frame.outer->vlan = action->record.new_outer_vlan;
    } else {
        passage->vlan = kDefaultVlan;
        const auto of_type = protocols_.find({passage->port, frame.type});
        if (of_type != protocols_.end())
            action.emplace(of_type->second.action);
        else if (port.default_action)
            action.emplace(*port.default_action);
        if (action && action->record.ut_outer == bcmVlanActionAdd)
            passage->vlan = action->record.new_outer_vlan;
        const auto pcp = static_cast<uint8_t>(passage->priority);
        frame.outer = VlanTag{0x8100, static_cast<uint16_t>(passage->vlan), pcp};
    }
    if (action && is_within(action->record.priority, 7)) {
        passage->priority = action->record.priority;
        frame.outer->pcp = static_cast<uint8_t>(action->record.priority);
    }
}

// The map of code points rewrites the tag's PCP with the priority that it gives, unless a rule keeps it.
void Switch::assign_priority(const Port &port, const FieldVerdict &verdict, Passage *passage)
{
    const auto dscp = passage->frame.dscp();
    if (dscp && decides_by_dscp(port.map_mode)) {
        passage->priority = port.dscp_priority[*dscp];
        passage->frame.set_dscp(static_cast<uint8_t>(port.dscp_new[*dscp]));
        if (!verdict.keep_pcp)
            passage->frame.outer->pcp = static_cast<uint8_t>(passage->priority);
    }
    passage->queue = verdict.queue ? *verdict.queue : port.queue_of_priority[static_cast<size_t>(passage->priority)];
}

// All VLANs share one table, or each has its part.
std::map<Switch::Place, Switch::Address>::iterator Switch::find_address(uint64_t address, int64_t vlan)
{
    const auto number = static_cast<int64_t>(address);
    if (!shares_addresses_)
        return addresses_.find({number, vlan});
    const auto first = addresses_.lower_bound({number, 0});
    return first != addresses_.end() && first->first.first == number ? first : addresses_.end();
}

void Switch::learn(const Passage &passage)
{
    if (passage.frame.source == 0 || passage.frame.source >> 40 & 1)
        return;
    const auto known = find_address(passage.frame.source, passage.vlan);
    if (known == addresses_.end())
        addresses_[{static_cast<int64_t>(passage.frame.source), passage.vlan}] = {passage.port, 0};
    else if (!(known->second.flags & BCM_L2_STATIC))
        known->second.port = passage.port;
}

PortSet Switch::destinations(const Passage &passage)
{
    const auto vlan = vlans_.find(passage.vlan);
    if (vlan == vlans_.end())
        return {};
    const PortSet others = vlan->second.members & ~only(passage.port);
    const auto known = find_address(passage.frame.destination, passage.vlan);
    return known == addresses_.end() ? others : others & only(static_cast<uint32_t>(known->second.port));
}

void Switch::send(uint32_t number, const Passage &passage)
{
    Port *port = port_of(number);
    if (!port || !has_link(number))
        return;
    EthernetFrame frame = passage.frame;
    const auto vlan = vlans_.find(passage.vlan);
    const auto translation =
        port->is_enabled(bcmVlanTranslateEgressEnable) ? egress_.find({number, 0, passage.vlan, 0}) : egress_.end();
    if (translation != egress_.end()) {
        const VlanAction action(translation->second.action);
        if ((frame.inner ? action.record.dt_outer : action.record.ot_outer) == bcmVlanActionReplace)
            frame.outer->vlan = action.record.new_outer_vlan;
        if (is_within(action.record.priority, 7))
            frame.outer->pcp = static_cast<uint8_t>(action.record.priority);
    }
    if (vlan != vlans_.end() && (vlan->second.untagged[number]))
        frame.outer.reset();
    serve(number, port);
    QueuedFrame queued{passage.queue, passage.priority, std::move(frame)};
    if (port->queues.is_empty() && port->sending.takes(queued.frame.length()))
        return leave(number, port, std::move(queued));
    if (!port->queues.put(std::move(queued))) {
        ++port->drops[static_cast<size_t>(passage.queue)];
        ++port->counters[snmpIfOutDiscards];
    }
}

// Lets the frames leave that the port's rate has had time for.
void Switch::serve(uint32_t number, Port *port)
{
    if (!has_link(number))
        port->queues.clear();
    port->sending.fill(port->egress_rate, board().monotonic_ns(), !port->queues.is_empty());
    for (const QueuedFrame *next = port->queues.next(); next; next = port->queues.next()) {
        if (!port->sending.takes(next->frame.length()))
            return;
        leave(number, port, port->queues.take());
    }
}

void Switch::serve_ports()
{
    for (auto &[number, port] : ports_)
        if (!port.queues.is_empty())
            serve(number, &port);
}

void Switch::leave(uint32_t number, Port *port, QueuedFrame frame)
{
    count(port, frame.frame, false);
    if (copies_.size() < kKeptCopies)
        copies_.push_back({number, std::move(frame)});
}

std::string Switch::sent()
{
    serve_ports();
    std::string text;
    for (const auto &[port, copy] : copies_)
        text += std::to_string(port) + ": " + copy.frame.text() + " queue=" + std::to_string(copy.queue) +
                " priority=" + std::to_string(copy.priority) + "\n";
    copies_.clear();
    return text;
}

void Switch::send_frame(const Given &given)
{
    Words frame = given.words("FRAME");
    uint64_t times = 1;
    if (frame[0].starts_with("times=")) {
        times = number_of(frame[0].substr(6));
        frame.erase(frame.begin());
    }
    const EthernetFrame parsed = EthernetFrame::parse(frame);
    for (uint64_t i = 0; i < times; ++i)
        receive(given.number("PORT"), parsed);
}

} // namespace vboard
