// Tables of the switch model: VLANs, translations, addresses.
#include <algorithm>

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr int64_t kHighestVlan = 4095;
constexpr size_t kActionWords = 20;

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
    return {vlans_.erase(in[1]) ? 0 : kNotFound};
}

SwitchWords Switch::vlan_port_add(const SwitchWords &in)
{
    const auto vlan = vlans_.find(in[1]);
    if (vlan == vlans_.end())
        return {kNotFound};
    for (size_t i = 0; i < 16; ++i)
        vlan->second[i] |= in[2 + i];
    return {0};
}

SwitchWords Switch::vlan_port_remove(const SwitchWords &in)
{
    const auto vlan = vlans_.find(in[1]);
    if (vlan == vlans_.end())
        return {kNotFound};
    for (size_t i = 0; i < 16; ++i)
        vlan->second[i] &= ~in[2 + i % 8];
    return {0};
}

SwitchWords Switch::vlan_port_get(const SwitchWords &in)
{
    const auto vlan = vlans_.find(in[1]);
    if (vlan == vlans_.end())
        return {is_vlan(in[1]) ? kNotFound : kParameter};
    SwitchWords out{0};
    out.insert(out.end(), vlan->second.begin(), vlan->second.end());
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
    return {translations_.try_emplace({in[1], in[2], in[3], in[4]}, entry).second ? 0 : kExists};
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
    Translation entry{};
    std::copy_n(in.begin() + 4, kActionWords, entry.action.begin());
    return {egress_.try_emplace({in[1], 0, in[2], in[3]}, entry).second ? 0 : kExists};
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
