#include "daemon/models/switch.h"

#include <span>

#include "daemon/board.h"
#include "daemon/log.h"
#include "daemon/models/links.h"
#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

// Calls whose records or prototypes differ by release: a service of another one does not know them.
constexpr const char *kByRelease[] = {"bcm_field_group_config_create", "bcm_vlan_port_default_action_",
                                      "bcm_vlan_port_protocol_action_", "bcm_vlan_translate_", "bcm_l2_"};

bool differs_by_release(const std::string &name)
{
    for (const char *start : kByRelease)
        if (name.rfind(start, 0) == 0)
            return true;
    return false;
}

// Sets or reads values of a port, each at most `last`.
SwitchWords transfer(std::span<int64_t> values, const SwitchWords &in, bool sets, int64_t last)
{
    SwitchWords out = done();
    if (!sets) {
        out.insert(out.end(), values.begin(), values.end());
        return out;
    }
    if (in.size() != 2 + values.size())
        return failed(kParameter);
    for (size_t i = 0; i < values.size(); ++i)
        if (!is_within(in[2 + i], last))
            return failed(kParameter);
    std::copy(in.begin() + 2, in.end(), values.begin());
    return out;
}

} // namespace

struct Switch::Scalar {
    const char *name; // without "_set" and "_get"
    int64_t Port::*field;
    int64_t last; // largest value
};
const Switch::Scalar Switch::kScalars[] = {
    {"bcm_port_autoneg", &Port::autoneg, 1},
    {"bcm_port_duplex", &Port::duplex, 1},
    {"bcm_port_speed", &Port::speed, 10000},
    {"bcm_port_loopback", &Port::loopback, 4},
    {"bcm_port_mdix", &Port::mdix, 3},
    {"bcm_port_dscp_map_mode", &Port::map_mode, 4},
    {"bcm_port_untagged_priority", &Port::untagged_priority, 7},
};

struct Switch::Pair {
    const char *name;
    std::array<int64_t, 2> Port::*field;
};
const Switch::Pair Switch::kPairs[] = {
    {"bcm_port_rate_egress", &Port::egress_rate},
    {"bcm_port_rate_ingress", &Port::ingress_rate},
};

struct Switch::Handler {
    const char *name;
    size_t words; // arguments, the unit first
    SwitchWords (Switch::*handle)(const SwitchWords &in);
};
const Switch::Handler Switch::kHandlers[] = {
    {"bcm_port_phy_get", 4, &Switch::phy_get},
    {"bcm_port_phy_set", 5, &Switch::phy_set},
    {"bcm_port_phy_modify", 6, &Switch::phy_modify},
    {"bcm_port_enable_set", 3, &Switch::enable_set},
    {"bcm_port_link_status_get", 2, &Switch::link_status_get},
    {"bcm_port_ability_advert_get", 2, &Switch::ability_get},
    {"bcm_port_ability_advert_set", 5, &Switch::ability_set},
    {"bcm_port_master_get", 2, &Switch::master_get},
    {"bcm_port_master_set", 3, &Switch::master_set},
    {"bcm_port_gport_get", 2, &Switch::gport_get},
    {"bcm_port_dscp_map_set", 5, &Switch::dscp_set},
    {"bcm_port_dscp_map_get", 3, &Switch::dscp_get},
    {"bcm_cosq_stat_sync_get32", 4, &Switch::drops_get},
    {"bcm_cosq_stat_set32", 5, &Switch::drops_set},
    {"bcm_cosq_port_sched_set", 18, &Switch::sched_set},
    {"bcm_cosq_port_sched_get", 9, &Switch::sched_get},
    {"bcm_cosq_port_mapping_set", 4, &Switch::mapping_set},
    {"bcm_cosq_port_mapping_get", 3, &Switch::mapping_get},
    {"bcm_stat_multi_get", 3, &Switch::stats_get},
    {"bcm_vlan_create", 2, &Switch::vlan_create},
    {"bcm_vlan_destroy", 2, &Switch::vlan_destroy},
    {"bcm_vlan_port_add", 18, &Switch::vlan_port_add},
    {"bcm_vlan_port_remove", 10, &Switch::vlan_port_remove},
    {"bcm_vlan_port_get", 2, &Switch::vlan_port_get},
    {"bcm_vlan_port_default_action_set", 22, &Switch::default_action_set},
    {"bcm_vlan_port_default_action_get", 2, &Switch::default_action_get},
    {"bcm_vlan_port_default_action_delete", 2, &Switch::default_action_delete},
    {"bcm_vlan_control_set", 3, &Switch::vlan_control_set},
    {"bcm_vlan_control_get", 2, &Switch::vlan_control_get},
    {"bcm_vlan_control_port_set", 4, &Switch::vlan_control_port_set},
    {"bcm_vlan_control_port_get", 3, &Switch::vlan_control_port_get},
    {"bcm_vlan_port_protocol_action_add", 24, &Switch::protocol_add},
    {"bcm_vlan_port_protocol_action_get", 4, &Switch::protocol_get},
    {"bcm_vlan_port_protocol_action_delete", 4, &Switch::protocol_delete},
    {"bcm_vlan_translate_action_get", 5, &Switch::translation_get},
    {"bcm_vlan_translate_egress_action_get", 4, &Switch::egress_get},
    {"bcm_vlan_translate_action_add", 25, &Switch::translation_add},
    {"bcm_vlan_translate_action_delete", 5, &Switch::translation_delete},
    {"bcm_vlan_translate_action_traverse", 1, &Switch::translation_list},
    {"bcm_vlan_translate_egress_action_add", 24, &Switch::egress_add},
    {"bcm_vlan_translate_egress_action_delete", 4, &Switch::egress_delete},
    {"bcm_vlan_translate_egress_action_traverse", 1, &Switch::egress_list},
    {"bcm_l2_addr_add", 5, &Switch::address_add},
    {"bcm_l2_addr_get", 3, &Switch::address_get},
    {"bcm_l2_addr_delete", 3, &Switch::address_delete},
    {"bcm_l2_addr_delete_by_port", 4, &Switch::address_delete_by_port},
    {"bcm_l2_traverse", 1, &Switch::address_list},
};

Switch::Switch(Board &board) : Model(board)
{
    for (uint32_t number = 1; number <= kLastPort; ++number) {
        Port &port = ports_[number];
        for (size_t i = 0; i < 8; ++i)
            port.queue_of_priority[i] = static_cast<int64_t>(i);
        for (size_t i = 0; i < 64; ++i)
            port.dscp_new[i] = static_cast<int64_t>(i);
        if (!phy_of(number)) {
            port.speed = 10000;
            port.full_ability = 0x840;
            port.pause_ability = 0x3;
        }
    }
    ports_[kMultiGigabitPort].speed = 2500;
    clock_port_ = kFirstClockPort;
    vlans_[kDefaultVlan] = {all_ports(), all_ports()};
}

PortSet Switch::all_ports() const
{
    PortSet ports;
    for (const auto &[number, port] : ports_)
        ports.set(number);
    return ports;
}

Switch::Port *Switch::port_of(int64_t number)
{
    const auto found = ports_.find(static_cast<uint32_t>(local_port(number)));
    return found == ports_.end() ? nullptr : &found->second;
}

Phy *Switch::phy_of(int64_t port)
{
    for (const CopperPort &copper : kCopperPorts)
        if (copper.port == port)
            return &phys_[static_cast<size_t>(copper.mdio)];
    return nullptr;
}

const Phy *Switch::phy_of(int64_t port) const
{
    return const_cast<Switch *>(this)->phy_of(port);
}

bool Switch::has_link(uint32_t number) const
{
    const Port &port = ports_.at(number);
    const Phy *phy = phy_of(number);
    return port.partner && port.enabled && (!phy || phy->has_link());
}

void Switch::settle(uint32_t number)
{
    if (auto *links = board().find<Links>())
        links->publish(LinkKind::kBroadcom, number,
                       has_link(number)            ? "routable"
                       : ports_.at(number).enabled ? "no-carrier"
                                                   : "off");
}

void Switch::settle_ports_of(const Phy *phy)
{
    for (const CopperPort &copper : kCopperPorts)
        if (phy == &phys_[static_cast<size_t>(copper.mdio)])
            settle(copper.port);
}

void Switch::plug(uint32_t number, bool partner)
{
    Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no port " + std::to_string(number));
    port->partner = partner;
    settle(number);
}

void Switch::select_clock(uint32_t channel)
{
    clock_port_ = kFirstClockPort + channel;
}

bool Switch::is_failing(const std::string &name, int *code)
{
    const auto found = failures_.find(name);
    if (found == failures_.end())
        return false;
    Failure &failure = found->second;
    if (failure.skip > 0) {
        --failure.skip;
        return false;
    }
    *code = failure.code;
    if (failure.left != UINT64_MAX && --failure.left == 0)
        failures_.erase(found);
    return true;
}

SwitchWords Switch::call(const std::string &name, const SwitchWords &in)
{
    keep_line(calls_, line_of(name, in));
    int code = 0;
    if (is_failing(name, &code))
        return failed(code);
    if (name == "sal_core_init")
        return done({release_});
    if (name.rfind("bcm_", 0) != 0 || name == "bcm_attach" || name == "bcm_rpc_start" || name == "bcm_rlink_start")
        return done(); // a step of the start-up, which the client library checks
    if (in.empty() || in[0] != 0)
        return failed(kUnit);
    serve_ports();
    if (release_ != service_release_ && differs_by_release(name))
        return failed(kUnavailable);
    if (name.rfind("bcm_field_", 0) == 0)
        return rules_.call(name, in, all_ports());
    SwitchWords out;
    if (call_scalar(name, in, &out))
        return out;
    for (const Handler &handler : kHandlers)
        if (name == handler.name)
            return in.size() >= handler.words ? (this->*handler.handle)(in) : failed(kInternal);
    return failed(kUnavailable);
}

bool Switch::call_scalar(const std::string &name, const SwitchWords &in, SwitchWords *out)
{
    if (name.size() < 4 || in.size() < 2)
        return false;
    const std::string what = name.substr(0, name.size() - 4);
    const bool sets = name.ends_with("_set");
    if (!sets && !name.ends_with("_get"))
        return false;
    Port *port = port_of(in[1]);
    for (const Scalar &scalar : kScalars)
        if (what == scalar.name) {
            *out = port ? transfer({&(port->*scalar.field), 1}, in, sets, scalar.last) : failed(kPort);
            return true;
        }
    for (const Pair &pair : kPairs)
        if (what == pair.name) {
            *out = port ? transfer(port->*pair.field, in, sets, UINT32_MAX) : failed(kPort);
            return true;
        }
    return false;
}

std::string Switch::show(uint32_t number)
{
    const Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no such port");
    std::string text = has_link(number) ? "link up\n" : "link down\n";
    for (const Scalar &scalar : kScalars)
        text += std::string(scalar.name).substr(9) + " " + std::to_string(port->*scalar.field) + "\n";
    text += "enabled " + std::to_string(port->enabled) + "\nschedule " + std::to_string(port->queues.mode()) +
            "\nability " + std::to_string(port->half_ability) + " " + std::to_string(port->full_ability) + " " +
            std::to_string(port->pause_ability) + "\n";
    if (number == clock_port_)
        text += has_link(number) ? "recovered clock runs\n" : "recovered clock stands still\n";
    return text;
}

} // namespace vboard
