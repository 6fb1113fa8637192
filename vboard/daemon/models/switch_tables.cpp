// Tables of the switch model: VLANs, translations, S-VLANs of ethertypes, addresses.
#include <algorithm>
#include <cstring>

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr int64_t kHighestVlan = 4095;
constexpr size_t kActionWords = 20;

// The controls of a port that the model acts on.
constexpr int64_t kPortControls[] = {bcmVlanTranslateIngressEnable, bcmVlanTranslateEgressEnable,
                                     bcmVlanPortTranslateKeyFirst, bcmVlanPortTranslateKeySecond};

bool is_port_control(int64_t control)
{
    return std::find(std::begin(kPortControls), std::end(kPortControls), control) != std::end(kPortControls);
}

template <typename Table, typename Key>
SwitchWords action_in(const Table &table, const Key &key)
{
    const auto found = table.find(key);
    if (found == table.end())
        return {kNotFound};
    SwitchWords out{0};
    out.insert(out.end(), found->second.action.begin(), found->second.action.end());
    return out;
}

bool is_vlan(int64_t vlan)
{
    return vlan >= 1 && vlan <= kHighestVlan; // 0 is no VLAN
}

} // namespace

SwitchWords Switch::vlan_create(const SwitchWords &in)
{
    if (!is_vlan(in[1]))
        return {kParameter};
    return {vlans_.try_emplace(in[1]).second ? 0 : kExists};
}

SwitchWords Switch::vlan_destroy(const SwitchWords &in)
{
    if (in[1] == kDefaultVlan)
        return {kBadIdentifier};
    return {vlans_.erase(in[1]) ? 0 : kNotFound};
}

SwitchWords Switch::vlan_port_add(const SwitchWords &in)
{
    const auto vlan = vlans_.find(in[1]);
    if (vlan == vlans_.end())
        return {kNotFound};
    vlan->second.members |= port_set_of(in, 2);
    vlan->second.untagged |= port_set_of(in, 2 + kWordsOfSet);
    return {0};
}

SwitchWords Switch::vlan_port_remove(const SwitchWords &in)
{
    const auto vlan = vlans_.find(in[1]);
    if (vlan == vlans_.end())
        return {kNotFound};
    const PortSet others = ~port_set_of(in, 2);
    vlan->second.members &= others;
    vlan->second.untagged &= others;
    return {0};
}

SwitchWords Switch::vlan_port_get(const SwitchWords &in)
{
    const auto vlan = vlans_.find(in[1]);
    if (vlan == vlans_.end())
        return {is_vlan(in[1]) ? kNotFound : kParameter};
    SwitchWords out{0};
    append(&out, vlan->second.members);
    append(&out, vlan->second.untagged);
    return out;
}

SwitchWords Switch::default_action_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return {kPort};
    std::copy_n(in.begin() + 2, kActionWords, port->default_action.emplace().begin());
    return {0};
}

SwitchWords Switch::default_action_get(const SwitchWords &in)
{
    const Port *port = port_of(in[1]);
    if (!port || !port->default_action)
        return {port ? kNotFound : kPort};
    SwitchWords out{0};
    out.insert(out.end(), port->default_action->begin(), port->default_action->end());
    return out;
}

SwitchWords Switch::default_action_delete(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return {kPort};
    const bool was_there = port->default_action.has_value();
    port->default_action.reset();
    return {was_there ? 0 : kNotFound};
}

SwitchWords Switch::translation_add(const SwitchWords &in)
{
    if (!port_of(in[1]))
        return {kPort};
    Translation entry{};
    std::copy_n(in.begin() + 5, kActionWords, entry.action.begin());
    translations_[{in[1], in[2], in[3], in[4]}] = entry; // an entry of this key is replaced
    return {0};
}

SwitchWords Switch::translation_get(const SwitchWords &in)
{
    return port_of(in[1]) ? action_in(translations_, Key{in[1], in[2], in[3], in[4]}) : SwitchWords{kPort};
}

SwitchWords Switch::translation_delete(const SwitchWords &in)
{
    return {translations_.erase({in[1], in[2], in[3], in[4]}) ? 0 : kNotFound};
}

SwitchWords Switch::translation_list(const SwitchWords &)
{
    SwitchWords out{0};
    for (const auto &[key, entry] : translations_) {
        out.insert(out.end(), key.begin(), key.end());
        out.insert(out.end(), entry.action.begin(), entry.action.end());
    }
    return out;
}

SwitchWords Switch::egress_add(const SwitchWords &in)
{
    if (!is_within(in[1], 255))
        return {kPort};
    Translation entry{};
    std::copy_n(in.begin() + 4, kActionWords, entry.action.begin());
    bcm_vlan_action_set_t action{};
    memcpy(static_cast<void *>(&action), entry.action.data(), sizeof entry.action);
    if (action.dt_outer == bcmVlanActionAdd || action.ot_outer == bcmVlanActionAdd)
        return {kParameter}; // a tag cannot be added on the way out
    egress_[{in[1], 0, in[2], in[3]}] = entry;
    return {0};
}

SwitchWords Switch::egress_get(const SwitchWords &in)
{
    return action_in(egress_, Key{in[1], 0, in[2], in[3]});
}

SwitchWords Switch::egress_delete(const SwitchWords &in)
{
    return {egress_.erase({in[1], 0, in[2], in[3]}) ? 0 : kNotFound};
}

SwitchWords Switch::egress_list(const SwitchWords &)
{
    SwitchWords out{0};
    for (const auto &[key, entry] : egress_) {
        out.insert(out.end(), {key[0], key[2], key[3]});
        out.insert(out.end(), entry.action.begin(), entry.action.end());
    }
    return out;
}

SwitchWords Switch::vlan_control_set(const SwitchWords &in)
{
    if (in[1] != bcmVlanShared)
        return {kUnavailable};
    shares_addresses_ = in[2] != 0;
    return {0};
}

SwitchWords Switch::vlan_control_get(const SwitchWords &in)
{
    return in[1] == bcmVlanShared ? done({shares_addresses_}) : failed(kUnavailable);
}

SwitchWords Switch::vlan_control_port_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port || !is_port_control(in[2]))
        return {port ? kUnavailable : kPort};
    port->vlan_control[in[2]] = in[3];
    return {0};
}

SwitchWords Switch::vlan_control_port_get(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port || !is_port_control(in[2]))
        return {port ? kUnavailable : kPort};
    return done({port->vlan_control[in[2]]});
}

SwitchWords Switch::protocol_add(const SwitchWords &in)
{
    if (!port_of(in[1]))
        return {kPort};
    if (in[2] != BCM_PORT_FRAMETYPE_ETHER2)
        return {kUnavailable};
    std::copy_n(in.begin() + 4, kActionWords, protocols_[{local_port(in[1]), in[3]}].action.begin());
    return {0};
}

SwitchWords Switch::protocol_get(const SwitchWords &in)
{
    return port_of(in[1]) ? action_in(protocols_, Place{local_port(in[1]), in[3]}) : SwitchWords{kPort};
}

SwitchWords Switch::protocol_delete(const SwitchWords &in)
{
    return {protocols_.erase({local_port(in[1]), in[3]}) ? 0 : kNotFound};
}

SwitchWords Switch::address_add(const SwitchWords &in)
{
    if (!port_of(in[3]))
        return {kPort};
    addresses_[{in[1], in[2]}] = {local_port(in[3]), in[4]};
    return {0};
}

SwitchWords Switch::address_get(const SwitchWords &in)
{
    const auto found = addresses_.find({in[1], in[2]});
    if (found == addresses_.end())
        return {kNotFound};
    return {0, found->second.port, found->second.flags};
}

SwitchWords Switch::address_delete(const SwitchWords &in)
{
    return {addresses_.erase({in[1], in[2]}) ? 0 : kNotFound};
}

SwitchWords Switch::address_delete_by_port(const SwitchWords &in)
{
    const bool static_too = in[3] & 1;
    std::erase_if(addresses_, [&](const auto &entry) {
        return entry.second.port == local_port(in[2]) && (static_too || !(entry.second.flags & BCM_L2_STATIC));
    });
    return {0};
}

SwitchWords Switch::address_list(const SwitchWords &)
{
    SwitchWords out{0};
    for (const auto &[key, entry] : addresses_)
        out.insert(out.end(), {key.first, key.second, entry.port, entry.flags});
    return out;
}

} // namespace vboard
