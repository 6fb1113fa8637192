// ddalctl switch: tunnels, loopbacks and filters, and the field rules behind them.
#include <ddal/eth_switch.h>
#include <ddal/ext.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/switch_commands.h"

namespace ddalctl {

namespace {

constexpr uint32_t kPorts = 256;
constexpr uint32_t kSvlans = 20;
constexpr uint32_t kPortsWithRules = 50;
constexpr Choice kOnOff[] = {{"off", 0}, {"on", 1}};
constexpr Choice kLearning[] = {{"independent", DDAL_ETH_SWITCH_LEARN_PER_VLAN},
                                {"shared", DDAL_ETH_SWITCH_LEARN_SHARED}};

using Rule = ddal_ext_switch_rule;

std::vector<Rule> rules_of_switch()
{
    return switch_list<Rule>([](Rule *list, uint32_t *size) { return DDAL(ddal_ext_switch_rules)(list, size); });
}

std::string hex_type(uint32_t type)
{
    char text[8];
    snprintf(text, sizeof text, "0x%04x", type & 0xFFFF);
    return text;
}

std::vector<uint64_t> numbers_in(const uint32_t (&set)[8])
{
    std::vector<uint64_t> ports;
    for (uint32_t port = 0; port < kPorts; port++)
        if (set[port / 32] >> port % 32 & 1)
            ports.push_back(port);
    return ports;
}

std::string ports_in(const uint32_t (&set)[8])
{
    std::string text;
    for (const uint64_t port : numbers_in(set))
        text += (text.empty() ? "" : ", ") + std::to_string(port);
    return text;
}

// A field of a rule that may be absent.
Report::Value field(uint32_t value)
{
    return value == DDAL_EXT_SWITCH_NONE ? Report::Value(nullptr) : Report::Value(uint64_t{value});
}

Report::Value mac_of_rule(const Rule &rule)
{
    return rule.has_mac ? Report::Value(mac_text(rule.mac)) : Report::Value(nullptr);
}

// Lists the allowed ports where most are blocked, else the blocked ones.
std::string blocked_ports(const Rule &rule)
{
    uint32_t others[8];
    uint32_t count = 0;
    for (size_t word = 0; word < 8; word++) {
        others[word] = ~rule.blocked[word];
        count += static_cast<uint32_t>(__builtin_popcount(rule.blocked[word]));
    }
    if (count == 0)
        return "";
    if (count == kPorts)
        return "blocked on every port";
    return count > kPorts / 2 ? "leave by port " + ports_in(others) + " only"
                              : "blocked on port " + ports_in(rule.blocked);
}

void append(std::string *text, const std::string &part)
{
    if (!part.empty())
        *text += (text->empty() ? "" : ", ") + part;
}

std::string frames_of(const Rule &rule)
{
    std::string text;
    if (rule.in_port != DDAL_EXT_SWITCH_NONE)
        append(&text, "from port " + std::to_string(rule.in_port));
    const std::string ports = ports_in(rule.in_ports);
    append(&text, ports.empty() ? "" : "from ports " + ports);
    if (rule.tagged != DDAL_EXT_SWITCH_NONE)
        append(&text, rule.tagged ? "with a tag" : "without a tag");
    if (rule.ethertype != DDAL_EXT_SWITCH_NONE)
        append(&text, "of type " + hex_type(rule.ethertype));
    if (rule.has_mac)
        append(&text, "to " + mac_text(rule.mac));
    return text.empty() ? "all" : text;
}

std::string actions_of(const Rule &rule)
{
    std::string text;
    if (rule.to_port != DDAL_EXT_SWITCH_NONE)
        append(&text, "go to port " + std::to_string(rule.to_port));
    if (rule.queue != DDAL_EXT_SWITCH_NONE)
        append(&text, "use queue " + std::to_string(rule.queue));
    append(&text, rule.keeps_pcp ? "keep their PCP" : "");
    append(&text, rule.drops && !ports_in(rule.in_ports).empty() ? "are dropped" : "");
    append(&text, blocked_ports(rule));
    return text;
}

// The fields behind the words of a rule.
void repeat_fields(Report &row, const Rule &rule)
{
    row.add_to_document("in-port", field(rule.in_port));
    row.add_to_document("in-ports", numbers_in(rule.in_ports));
    row.add_to_document("tagged", rule.tagged == DDAL_EXT_SWITCH_NONE ? Report::Value(nullptr) : rule.tagged != 0);
    row.add_to_document("ethertype", field(rule.ethertype));
    row.add_to_document("mac", mac_of_rule(rule));
    row.add_to_document("to-port", field(rule.to_port));
    row.add_to_document("to-queue", field(rule.queue));
    row.add_to_document("keeps-pcp", rule.keeps_pcp != 0);
    row.add_to_document("drops", rule.drops != 0);
    row.add_to_document("blocked-ports", numbers_in(rule.blocked));
}

void rules(const Arguments &arguments, Report &report)
{
    report.table("rules");
    for (const Rule &rule : rules_of_switch()) {
        const std::string actions = actions_of(rule);
        if (actions.empty() && !arguments.given("--all"))
            continue;
        Report &row = report.row("rules");
        row.add("group", uint64_t{rule.group});
        row.add("entry", uint64_t{rule.entry});
        row.add("frames", frames_of(rule));
        row.add("actions", actions.empty() ? Report::Value(nullptr) : actions, actions.empty() ? "-" : actions);
        repeat_fields(row, rule);
    }
}

// Ports that exchange frames, "14 <-> 18" for people. One way only: from the first to the second.
Report &add_way(Report &report, const std::vector<uint64_t> &ports, const char *between, const std::string &frames)
{
    std::string text;
    for (const uint64_t port : ports)
        text += (text.empty() ? "" : between) + std::to_string(port);
    Report &row = report.row("forwarding");
    row.add("ports", ports, text);
    row.add("frames", frames);
    return row;
}

// Returns whether another rule redirects the same frames back, so that both fit one line.
bool leads_back(const std::vector<Rule> &all, const Rule &rule)
{
    return std::any_of(all.begin(), all.end(), [&rule](const Rule &other) {
        return other.in_port == rule.to_port && other.to_port == rule.in_port && other.tagged == rule.tagged &&
               other.ethertype == rule.ethertype && !other.has_mac && !rule.has_mac;
    });
}

void add_redirections(const std::vector<Rule> &all, Report &report)
{
    for (const Rule &rule : all) {
        const bool is_repeated = rule.tagged == 1; // next to the rule for frames without a tag
        if (rule.to_port == DDAL_EXT_SWITCH_NONE || rule.in_port == DDAL_EXT_SWITCH_NONE || is_repeated)
            continue;
        const bool both_ways = leads_back(all, rule) && rule.to_port != rule.in_port;
        if (both_ways && rule.in_port > rule.to_port)
            continue;
        const std::string frames = rule.has_mac                             ? "to " + mac_text(rule.mac)
                                   : rule.ethertype != DDAL_EXT_SWITCH_NONE ? "of type " + hex_type(rule.ethertype)
                                                                            : "all";
        Report &row = add_way(report, {rule.in_port, rule.to_port}, both_ways ? " <-> " : " -> ", frames);
        row.add_to_document("both-ways", both_ways);
        row.add_to_document("ethertype", field(rule.ethertype));
        row.add_to_document("mac", mac_of_rule(rule));
        row.add_to_document("svlan", nullptr);
    }
}

void forwarding(const Arguments &, Report &report)
{
    report.table("forwarding");
    add_redirections(rules_of_switch(), report);
    std::vector<uint64_t> members[kSvlans + 1];
    for (uint32_t port = 1; port < kPortsWithRules; port++)
        for (const uint16_t svlan : switch_list<uint16_t>([port](uint16_t *list, uint32_t *size) {
                 return DDAL(ddal_eth_switch_get_svlans)(kSwitch, port, list, size);
             }))
            if (svlan <= kSvlans)
                members[svlan].push_back(port);
    for (uint32_t svlan = 1; svlan <= kSvlans; svlan++) {
        if (members[svlan].empty())
            continue;
        Report &row = add_way(report, members[svlan], " - ", "of S-VLAN " + std::to_string(svlan));
        row.add_to_document("both-ways", true);
        row.add_to_document("ethertype", nullptr);
        row.add_to_document("mac", nullptr);
        row.add_to_document("svlan", uint64_t{svlan});
    }
}

void tunnel(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    const uint32_t peer = arguments.number("PEER");
    require_switch(arguments.given("TYPE") ? DDAL(ddal_eth_switch_add_tunneling_with_ethertype_filter)(
                                                 kSwitch, port, peer, arguments.number("TYPE"))
                                           : DDAL(ddal_eth_switch_add_tunneling)(kSwitch, port, peer));
}

void untunnel(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_remove_tunneling)(kSwitch, arguments.number("PORT"), arguments.number("PEER")));
}

void loopback(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    const bool on = arguments.choice("STATE", kOnOff) != 0;
    require_switch(on ? DDAL(ddal_eth_switch_enable_loopback)(kSwitch, port)
                      : DDAL(ddal_eth_switch_disable_loopback)(kSwitch, port));
}

void filter(const Arguments &arguments, Report &)
{
    const Mac mac = mac_of(arguments.text("MAC"));
    require_switch(DDAL(ddal_eth_switch_add_multicast_filter)(kSwitch, arguments.number("PORT"),
                                                              arguments.number("PEER"), mac.data()));
}

void unfilter(const Arguments &arguments, Report &)
{
    const Mac mac = mac_of(arguments.text("MAC"));
    require_switch(DDAL(ddal_eth_switch_remove_multicast_filter)(kSwitch, arguments.number("PORT"),
                                                                 arguments.number("PEER"), mac.data()));
}

void set_translation(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    const uint32_t svlan = arguments.number("SVLAN");
    const bool on = arguments.choice("STATE", kOnOff) != 0;
    require_switch(on ? DDAL(ddal_eth_switch_enable_vlan_translation)(kSwitch, port, svlan)
                      : DDAL(ddal_eth_switch_disable_vlan_translation)(kSwitch, port, svlan));
}

void translation(const Arguments &arguments, Report &report)
{
    constexpr uint32_t kNone = 0;
    constexpr uint32_t kEnabled = 1;
    uint32_t status = 0;
    require_switch(DDAL(ddal_eth_switch_get_vlan_translation_status_on_svlan)(kSwitch, arguments.number("PORT"),
                                                                              arguments.number("SVLAN"), &status));
    if (status == kNone)
        report.add("translation", nullptr, "none");
    else
        report.add("translation", status == kEnabled, status == kEnabled ? "on" : "off");
}

void ethertype_svlan(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    const uint32_t type = arguments.number("TYPE");
    require_switch(arguments.given("SVLAN")
                       ? DDAL(ddal_eth_switch_set_ethertype_svlan)(kSwitch, port, type, arguments.number("SVLAN"))
                       : DDAL(ddal_eth_switch_remove_ethertype_svlan)(kSwitch, port, type));
}

void learning(const Arguments &arguments, Report &report)
{
    if (arguments.given("MODE")) {
        const uint32_t wanted = arguments.choice("MODE", kLearning);
        return require_switch(DDAL(ddal_eth_switch_set_vlan_learning_mode)(kSwitch, wanted));
    }
    uint32_t mode = 0;
    require_switch(DDAL(ddal_eth_switch_get_vlan_learning_mode)(kSwitch, &mode));
    report.add("learning", kLearning[mode != 0].word);
}

} // namespace

std::vector<Command> switch_rule_commands()
{
    const Argument peer = {"PEER", Kind::number, "the other port, 0 to 49", false, kPortsWithRules - 1};
    const Argument port = {"PORT", Kind::number, "port of the switch, 0 to 49", false, kPortsWithRules - 1};
    const Argument mac = {"MAC", Kind::text, "such as 01:00:5e:00:00:01"};
    const Argument type = {"TYPE", Kind::number, "ethertype, 0x600 to 0xffff", false, 0xFFFF, 0x600};
    const Argument state = one_of<kOnOff>("STATE", "on or off");
    return {
        {"rules",
         "list the field rules of the switch",
         {{"--all", Kind::flag, "include rules without an action"}},
         rules},
        {"forwarding", "list the ports that exchange frames: by rules first, then by S-VLANs", {}, forwarding},
        {"tunnel",
         "tunnel all frames, or those of one ethertype, between two ports",
         {port, peer, {"TYPE", Kind::number, type.help, true, type.max, type.min}},
         tunnel},
        {"untunnel", "remove a tunnel", {port, peer}, untunnel},
        {"loopback", "switch the loopback of a port on or off", {port, state}, loopback},
        {"filter", "send a port's frames to one address to another port", {port, peer, mac}, filter},
        {"unfilter", "remove a multicast filter", {port, peer, mac}, unfilter},
        {"translation", "show whether translations to an S-VLAN are enabled on a port", {kPort, kSvlan}, translation},
        {"set-translation", "switch a port's translations on or off", {kPort, kSvlan, state}, set_translation},
        {"ethertype-svlan",
         "set the S-VLAN of received frames of one type without a tag; without SVLAN, remove it",
         {kPort, type, kOptionalSvlan},
         ethertype_svlan},
        {"learning",
         "show or set whether VLANs share learned addresses",
         {one_of<kLearning>("MODE", "shared or independent", true)},
         learning},
    };
}

} // namespace ddalctl
