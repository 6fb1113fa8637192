#include "daemon/models/switch.h"

#include <algorithm>

#include "daemon/board.h"
#include "daemon/models/links.h"
#include "switch/sdk.h"

namespace vboard {

namespace {

constexpr uint32_t kLastPort = 29;
constexpr uint32_t kMultiGigabitPort = 20;
constexpr int kMultiGigabitMdio = 0;
constexpr int64_t kLocalPort = 0x08000000; // what a gport adds to a port of this switch
constexpr int64_t kMirrored = 0x7FFE0;     // standard registers of the 2.5G PHY in its clause-45 space

constexpr int kInternal = -1;
constexpr int kUnit = -3;
constexpr int kParameter = -4;
constexpr int kTimeOut = -9;
constexpr int kUnavailable = -16;
constexpr int kPort = -18;

struct CopperPort {
    uint32_t port;
    int mdio;
};
constexpr CopperPort kCopperPorts[] = {{14, 1}, {16, 0}, {kMultiGigabitPort, kMultiGigabitMdio}};

constexpr const char *kReleases[] = {"current", "wide", "old"};

SwitchWords done(std::initializer_list<int64_t> outputs = {})
{
    SwitchWords words{0};
    words.insert(words.end(), outputs);
    return words;
}

SwitchWords failed(int code)
{
    return {code};
}

bool is_within(int64_t value, int64_t last)
{
    return value >= 0 && value <= last;
}

int64_t local_port(int64_t gport)
{
    return gport & kLocalPort ? gport & ~kLocalPort : gport;
}

// The single port of a set, -1 for none or several.
int64_t only_port(const SwitchWords &in, size_t at)
{
    int64_t found = -1;
    for (size_t word = 0; word < 8; ++word)
        for (uint32_t bit = 0; bit < 32; ++bit)
            if (in[at + word] >> bit & 1)
                found = found == -1 ? static_cast<int64_t>(word * 32 + bit) : -2;
    return found < 0 ? -1 : found;
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

bool Switch::has_link(uint32_t number)
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
    calls_ += name;
    for (const int64_t word : in)
        calls_ += " " + std::to_string(word);
    calls_ += "\n";
    int code = 0;
    if (is_failing(name, &code))
        return failed(code);
    if (name == "sal_core_init")
        return done({release_});
    if (name.rfind("bcm_", 0) != 0 || name == "bcm_attach" || name == "bcm_rpc_start" || name == "bcm_rlink_start")
        return done(); // a step of the start-up, which the client library checks
    if (in.empty() || in[0] != 0)
        return failed(kUnit);
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
    for (const Scalar &scalar : kScalars) {
        if (what != scalar.name)
            continue;
        if (!port)
            *out = failed(kPort);
        else if (!sets)
            *out = done({port->*scalar.field});
        else if (in.size() != 3 || !is_within(in[2], scalar.last))
            *out = failed(kParameter);
        else
            *out = (port->*scalar.field = in[2], done());
        return true;
    }
    for (const Pair &pair : kPairs) {
        if (what != pair.name)
            continue;
        if (!port)
            *out = failed(kPort);
        else if (!sets)
            *out = done({(port->*pair.field)[0], (port->*pair.field)[1]});
        else if (in.size() != 4)
            *out = failed(kParameter);
        else
            *out = (port->*pair.field = {in[2], in[3]}, done());
        return true;
    }
    return false;
}

// --- PHYs ---------------------------------------------------------------------------------------------------------

namespace {

// The register that flags, port and number of a PHY access mean. False: nobody answers there.
struct PhyPlace {
    int mdio;
    uint32_t reg;
    bool mirrored;
};

int place_of(const SwitchWords &in, PhyPlace *place)
{
    const auto flags = static_cast<uint32_t>(in[2]);
    if (flags == BCM_PORT_PHY_NOMAP) {
        *place = {static_cast<int>(in[1]), static_cast<uint32_t>(in[3]), false};
        return !is_within(in[3], 31) ? kParameter : is_within(in[1], 1) ? 0 : kTimeOut;
    }
    if (flags == BCM_PORT_PHY_CLAUSE45) {
        *place = {kMultiGigabitMdio, static_cast<uint32_t>(in[3] - kMirrored), true};
        return in[1] != kMultiGigabitPort ? kUnavailable : is_within(in[3] - kMirrored, 31) ? 0 : kParameter;
    }
    return kParameter;
}

} // namespace

SwitchWords Switch::phy_get(const SwitchWords &in)
{
    PhyPlace place{};
    if (const int code = place_of(in, &place))
        return failed(code);
    const Phy &phy = phys_[static_cast<size_t>(place.mdio)];
    if (phy.is_held())
        return failed(kTimeOut);
    return done({place.mirrored ? phy.read(0, place.reg) : phy.read_selected(place.reg)});
}

SwitchWords Switch::phy_set(const SwitchWords &in)
{
    PhyPlace place{};
    if (const int code = place_of(in, &place))
        return failed(code);
    Phy &phy = phys_[static_cast<size_t>(place.mdio)];
    if (phy.is_held())
        return failed(kTimeOut);
    const auto value = static_cast<uint16_t>(in[4]);
    if (place.mirrored)
        phy.write(0, place.reg, value);
    else
        phy.write_selected(place.reg, value);
    for (const CopperPort &copper : kCopperPorts) {
        if (copper.mdio != place.mdio || copper.port == kMultiGigabitPort)
            continue;
        ports_.at(copper.port).speed = phy.speed();
        ports_.at(copper.port).duplex = phy.is_full_duplex();
    }
    settle_ports_of(&phy);
    return done();
}

SwitchWords Switch::phy_modify(const SwitchWords &in)
{
    SwitchWords old = phy_get(in);
    if (old[0] != 0)
        return old;
    SwitchWords change = in;
    change[4] = (old[1] & ~in[5]) | (in[4] & in[5]);
    return phy_set(change);
}

SwitchWords Switch::master_get(const SwitchWords &in)
{
    const Phy *phy = phy_of(in[1]);
    if (!phy)
        return failed(port_of(in[1]) ? kUnavailable : kPort);
    const uint16_t control = phy->read(0, 9);
    return done({!(control & 0x1000) ? BCM_PORT_MS_AUTO : control & 0x0800 ? BCM_PORT_MS_MASTER : BCM_PORT_MS_SLAVE});
}

SwitchWords Switch::master_set(const SwitchWords &in)
{
    Phy *phy = phy_of(in[1]);
    if (!phy)
        return failed(port_of(in[1]) ? kUnavailable : kPort);
    if (!is_within(in[2], BCM_PORT_MS_AUTO))
        return failed(kParameter);
    const int bits = in[2] == BCM_PORT_MS_AUTO ? 0 : in[2] == BCM_PORT_MS_MASTER ? 0x1800 : 0x1000;
    phy->write(0, 9, static_cast<uint16_t>((phy->read(0, 9) & ~0x1800) | bits));
    return done();
}

// --- ports --------------------------------------------------------------------------------------------------------

SwitchWords Switch::enable_set(const SwitchWords &in)
{
    Port *port = port_of(in[1]);
    if (!port)
        return failed(kPort);
    port->enabled = in[2] != 0;
    settle(static_cast<uint32_t>(in[1]));
    return done();
}

SwitchWords Switch::link_status_get(const SwitchWords &in)
{
    return port_of(in[1]) ? done({has_link(static_cast<uint32_t>(in[1]))}) : failed(kPort);
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
    port->schedule = in[9];
    std::copy_n(in.begin() + 10, 8, port->weights.begin());
    return done();
}

SwitchWords Switch::sched_get(const SwitchWords &in)
{
    const Port *port = port_of(only_port(in, 1));
    if (!port)
        return failed(kPort);
    SwitchWords out = done({port->schedule});
    out.insert(out.end(), port->weights.begin(), port->weights.end());
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

// --- control ------------------------------------------------------------------------------------------------------

void Switch::count_traffic(const Words &words)
{
    const auto number = static_cast<uint32_t>(number_of(word_at(words, 1, "a port")));
    Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no such port");
    if (!has_link(number))
        return; // nothing passes
    const bool received = word_at(words, 2, "rx or tx") == "rx";
    port->counters[received ? snmpIfHCInUcastPkts : snmpIfHCOutUcastPkts] += number_of(word_at(words, 3, "packets"));
    port->counters[received ? snmpIfHCInOctets : snmpIfHCOutOctets] += number_of(word_at(words, 4, "bytes"));
}

std::string Switch::show(uint32_t number)
{
    const Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no such port");
    std::string text = has_link(number) ? "link up\n" : "link down\n";
    for (const Scalar &scalar : kScalars)
        text += std::string(scalar.name).substr(9) + " " + std::to_string(port->*scalar.field) + "\n";
    text += "enabled " + std::to_string(port->enabled) + "\nschedule " + std::to_string(port->schedule) + "\nability " +
            std::to_string(port->half_ability) + " " + std::to_string(port->full_ability) + " " +
            std::to_string(port->pause_ability) + "\n";
    return text;
}

std::string Switch::control(const Words &words)
{
    const std::string &verb = word_at(words, 0, "show, calls, fail, release, traffic, drop, learn or phy");
    if (verb == "calls")
        return std::exchange(calls_, {});
    const std::string &object = word_at(words, 1, "a port, call, release or address");
    if (verb == "show")
        return show(static_cast<uint32_t>(number_of(object)));
    if (verb == "fail") {
        const uint64_t times = words.size() > 3 ? number_of(words[3]) : 1;
        failures_[object] = {std::stoi(word_at(words, 2, "a code")), times ? times : UINT64_MAX,
                             words.size() > 4 ? number_of(words[4]) : 0};
    } else if (verb == "heal") {
        failures_.erase(object);
    } else if (verb == "release") {
        const auto *const found = std::find(std::begin(kReleases), std::end(kReleases), object);
        if (found == std::end(kReleases))
            throw ControlError("releases of the SDK are current, wide and old");
        release_ = found - kReleases;
    } else if (verb == "traffic") {
        count_traffic(words);
    } else if (verb == "drop") {
        Port *port = port_of(static_cast<int64_t>(number_of(object)));
        const uint64_t queue = number_of(word_at(words, 2, "a queue"));
        if (!port || queue > 7)
            throw ControlError("the switch has no such queue");
        port->drops[queue] += static_cast<uint32_t>(number_of(word_at(words, 3, "packets")));
    } else if (verb == "learn") {
        addresses_[{static_cast<int64_t>(number_of(word_at(words, 2, "an address"))),
                    static_cast<int64_t>(number_of(word_at(words, 3, "a VLAN")))}] = {
            static_cast<int64_t>(number_of(object)), 0};
    } else if (verb == "phy") {
        const uint64_t mdio = number_of(object);
        if (mdio >= phys_.size())
            throw ControlError("the switch's PHYs are at MDIO addresses 0 and 1");
        const Words rest(words.begin() + 2, words.end());
        const bool holds = !rest.empty() && rest[0] == "hold";
        if (holds)
            phys_[mdio].hold_in_reset(word_at(rest, 1, "on or off") == "on");
        std::string text = holds ? "" : phys_[mdio].control(rest);
        settle_ports_of(&phys_[mdio]);
        return text;
    } else {
        throw ControlError("the switch takes show, calls, fail, heal, release, traffic, drop, learn and phy");
    }
    return {};
}

} // namespace vboard
