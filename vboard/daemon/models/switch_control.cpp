// What "vboard ctl switch" can do.
#include <algorithm>

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr const char *kReleases[] = {"6.5.16", "6.5.20", "6.5.24", "6.5.27", "old"};

constexpr const char *kAnyRelease = "6.5.16|6.5.20|6.5.24|6.5.27|old";

int64_t release_of(const std::string &name)
{
    const auto *const found = std::find(std::begin(kReleases), std::end(kReleases), name);
    if (found == std::end(kReleases))
        throw ControlError("releases of the SDK are 6.5.16, 6.5.20, 6.5.24, 6.5.27 and old");
    return found - kReleases;
}

} // namespace

void Switch::set_release(const Given &given)
{
    const Words names = given.words("NAME");
    release_ = release_of(names[0]);
    service_release_ = names.size() > 1 ? release_of(names[1]) : release_;
}

void Switch::count_traffic(const Given &given)
{
    const auto number = static_cast<uint32_t>(local_port(given.number<int64_t>("PORT")));
    Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no such port");
    if (!has_link(number))
        return; // nothing passes
    const bool received = given.says("rx");
    port->counters[received ? snmpIfHCInUcastPkts : snmpIfHCOutUcastPkts] += given.number<uint64_t>("PACKETS");
    port->counters[received ? snmpIfHCInOctets : snmpIfHCOutOctets] += given.number<uint64_t>("BYTES");
}

void Switch::count_drops(const Given &given)
{
    Port *port = port_of(given.number<int64_t>("PORT"));
    const auto queue = given.number("QUEUE");
    if (!port || queue > 7)
        throw ControlError("the switch has no such queue");
    port->drops[queue] += given.number("PACKETS");
}

void Switch::fail(const Given &given)
{
    const auto times = given.number_or<uint64_t>("TIMES", 1);
    failures_[given.text("CALL")] = {given.number<int>("CODE"), times ? times : UINT64_MAX,
                                     given.number_or<uint64_t>("SKIP", 0)};
}

Phy &Switch::phy_in(const Given &given)
{
    const auto mdio = given.number("MDIO");
    if (mdio >= phys_.size())
        throw ControlError("the switch's PHYs are at MDIO addresses 0 and 1");
    return phys_[mdio];
}

// Each may move a link: the services hear of it.
ControlTable Switch::phy_commands()
{
    using Row = ControlRow<Switch>;
    ControlTable table = Phy::commands<Switch>("phy MDIO", std::mem_fn(&Switch::phy_in));
    table.push_back(Row{"phy MDIO hold on|off", "hold a PHY in reset, or let it go",
                        [](Switch &chip, const Given &given) { chip.phy_in(given).hold_in_reset(given.says("on")); }});
    for (ControlCommand &command : table)
        command.run = [run = command.run](Controlled &controlled, const Given &given) {
            auto &chip = static_cast<Switch &>(controlled);
            std::string text = run(controlled, given);
            chip.settle_ports_of(&chip.phy_in(given));
            return text;
        };
    return table;
}

ControlTable Switch::commands()
{
    using Row = ControlRow<Switch>;
    ControlTable table{
        Row{"show PORT", "print link and settings of a port",
            [](Switch &chip, const Given &given) { return chip.show(given.number("PORT")); }},
        Row{"calls", "print the calls of the SDK since the last time, one a line",
            [](Switch &chip) { return std::exchange(chip.calls_, {}); }},
        Row{"send PORT FRAME...",
            "let a frame come in: its bytes in hexadecimal, or fields dst= src= vlan= pcp= type=; times=N before it "
            "repeats it",
            &Switch::send_frame},
        Row{"sent", "print the copies that left since the last time, one a line", &Switch::sent},
        Row{"rules", "print groups and entries of the field processor",
            [](Switch &chip) { return chip.rules_.show(); }},
        Row{"rules clear", "set the field processor as after power-on",
            [](Switch &chip) { chip.rules_ = FieldRules(); }},
        Row{"keep", "remember ports, tables and rules", &Switch::keep},
        Row{"changes", "print what differs from what is remembered: lines that went begin with -, new ones with +",
            &Switch::changes},
        Row{"back", "restore what is remembered", &Switch::restore},
        Row{"fail CALL CODE [TIMES] [SKIP]",
            "fail a call of the SDK so many times (1; 0 is always), after so many that succeed", &Switch::fail},
        Row{"heal CALL", "let a call succeed again",
            [](Switch &chip, const Given &given) { chip.failures_.erase(given.text("CALL")); }},
        Row{"release NAME [NAME]",
            std::string("select the release of the SDK's records, and that of the switch's service: ") + kAnyRelease,
            &Switch::set_release},
        Row{"mask keeps|blocks", "select the meaning of a set bit in an egress mask",
            [](Switch &chip, const Given &given) { chip.mask_keeps_ = given.says("keeps"); }},
        Row{"port-sets on|off", "offer the qualifier for several ports, or take it away",
            [](Switch &chip, const Given &given) { chip.rules_.offer_port_sets(given.says("on")); }},
        Row{"traffic PORT rx|tx PACKETS BYTES", "count traffic at a port that has a link", &Switch::count_traffic},
        Row{"drop PORT QUEUE PACKETS", "count packets that a queue dropped", &Switch::count_drops},
        Row{"learn PORT MAC VLAN", "learn an address, given as a number",
            [](Switch &chip, const Given &given) {
                chip.addresses_[{given.number<int64_t>("MAC"), given.number<int64_t>("VLAN")}] = {
                    given.number<int64_t>("PORT"), 0};
            }},
    };
    const ControlTable of_phys = phy_commands();
    table.insert(table.end(), of_phys.begin(), of_phys.end());
    return table;
}

} // namespace vboard
