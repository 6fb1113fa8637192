// ddalctl switch on boards whose switch is the external multiport switch.
#include <ddal/ex_switch.h>
#include <ddal/phy.h>
#include <ddal/unit.h>

#include <cerrno>
#include <sstream>
#include <string>

#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/switch_commands.h"

namespace ddalctl {

namespace {

constexpr uint32_t kPorts = DDAL_EXT_MULTIPORT_PORTS;
constexpr const char *kStates[] = {"disabled", "blocking", "learning", "forwarding"};

using Status = ddal_ext_multiport_status;
using Counters = ddal_ext_multiport_counters;

void require_multiport(int result)
{
    const Failure failure = failure_of(result);
    if (result == -ENOSYS)
        throw Failure(result, kNothingThere, "this board has no external multiport switch");
    if (result != 0)
        throw Failure(result, failure.status(), "the multiport switch does not answer");
}

std::vector<uint64_t> port_list(uint32_t ports)
{
    std::vector<uint64_t> list;
    for (uint32_t port = 0; port < kPorts; port++)
        if (ports >> port & 1)
            list.push_back(port);
    return list;
}

void add_link(const Status &status, Report &row)
{
    row.add("link", status.link ? "up" : "down");
    if (status.link && status.speed != DDAL_PHY_UNKNOWN)
        row.add("speed", uint64_t{status.speed}, std::to_string(status.speed) + " Mb/s");
    else
        row.add_missing("speed");
}

void check_port(uint32_t port)
{
    if (port >= kPorts)
        throw WrongUse("PORT: " + std::to_string(port) + " is outside 0 to 6 of the multiport switch");
}

Status status_of(uint32_t port)
{
    check_port(port);
    Status status = {};
    require_multiport(DDAL(ddal_ext_multiport_get_port_status)(port, &status));
    return status;
}

Counters counters_of(uint32_t port)
{
    check_port(port);
    Counters counters = {};
    require_multiport(DDAL(ddal_ext_multiport_get_port_counters)(port, &counters));
    return counters;
}

void set_ports(const Arguments &arguments, Report &)
{
    const Argument number = {"PORTS", Kind::number, "", false, kPorts - 1};
    uint32_t ports = 0;
    std::istringstream words(arguments.text("PORTS") == "none" ? "" : arguments.text("PORTS"));
    for (std::string word; std::getline(words, word, ',');) {
        Arguments parsed;
        parsed.set(number, word);
        ports |= 1u << parsed.number("PORTS");
    }
    require_multiport(DDAL(ddal_ext_multiport_set_port_vlan_map)(arguments.number("PORT"), ports));
}

} // namespace

bool only_multiport()
{
    return DDAL(ddal_unit_get_board)() != DDAL_BOARD_TYPE_MBO && DDAL(is_BH3_type_multiport_switch)() >= 0;
}

ddal_eth_switch_port_stats multiport_stats(uint32_t port)
{
    const Counters c = counters_of(port);
    ddal_eth_switch_port_stats stats = {};
    stats.rx_octets = c.in_good_octets;
    stats.rx_packets = c.in_unicasts + c.in_broadcasts + c.in_multicasts;
    stats.rx_errors =
        c.in_fcs_errors + c.in_rx_errors + c.in_undersized + c.in_fragments + c.in_oversized + c.in_jabbers;
    stats.rx_dropped = c.in_discards + c.in_filtered;
    stats.tx_octets = c.out_octets;
    stats.tx_packets = c.out_unicasts + c.out_broadcasts + c.out_multicasts;
    stats.tx_errors = c.out_fcs_errors + c.excessive + c.late;
    stats.tx_dropped = c.out_filtered;
    return stats;
}

void multiport_ports(Report &report)
{
    const auto devices = ports_in_use();
    for (uint32_t port = 0; port < kPorts; port++) {
        const ddal_eth_switch_port_stats stats = multiport_stats(port);
        const auto found = devices.find(port);
        Report &row = report.row("ports");
        row.add("port", uint64_t{port});
        add_numbers(row, "phy-devices", found == devices.end() ? std::vector<uint64_t>() : found->second);
        add_link(status_of(port), row);
        row.add("rx-packets", stats.rx_packets);
        row.add("tx-packets", stats.tx_packets);
    }
}

void multiport_show(uint32_t port, Report &report)
{
    const Status status = status_of(port);
    uint32_t ports = 0;
    require_multiport(DDAL(ddal_ext_multiport_get_port_vlan_map)(port, &ports));
    add_link(status, report);
    if (status.link)
        report.add("duplex", status.duplex == DDAL_PHY_FULL_DUPLEX ? "full" : "half");
    else
        report.add_missing("duplex");
    report.add("pause", status.pause != 0, status.pause ? "on" : "off");
    report.add("state", kStates[status.state % std::size(kStates)]);
    add_numbers(report, "sends-to", port_list(ports));
}

void multiport_counters(uint32_t port, Report &report)
{
    const Counters c = counters_of(port);
    const struct {
        const char *name;
        uint64_t value;
    } rows[] = {
        {"rx-octets", c.in_good_octets},
        {"rx-bad-octets", c.in_bad_octets},
        {"rx-unicasts", c.in_unicasts},
        {"rx-broadcasts", c.in_broadcasts},
        {"rx-multicasts", c.in_multicasts},
        {"rx-pauses", c.in_pauses},
        {"rx-fcs-errors", c.in_fcs_errors},
        {"rx-errors", c.in_rx_errors + c.in_undersized + c.in_fragments + c.in_oversized + c.in_jabbers},
        {"rx-dropped", c.in_discards},
        {"rx-filtered", c.in_filtered},
        {"tx-octets", c.out_octets},
        {"tx-unicasts", c.out_unicasts},
        {"tx-broadcasts", c.out_broadcasts},
        {"tx-multicasts", c.out_multicasts},
        {"tx-pauses", c.out_pauses},
        {"tx-fcs-errors", c.out_fcs_errors},
        {"tx-collisions", c.collisions},
        {"tx-late-collisions", c.late},
        {"tx-given-up", c.excessive},
        {"tx-filtered", c.out_filtered},
    };
    for (const auto &row : rows)
        report.add(row.name, row.value);
}

std::vector<Command> switch_multiport_commands()
{
    return {
        {"set-ports",
         "set the ports that a port of the external multiport switch may send to",
         {{"PORT", Kind::number, "0 to 6", false, kPorts - 1},
          {"PORTS", Kind::text, "numbers from 0 to 6, separated by commas, or \"none\""}},
         set_ports},
    };
}

} // namespace ddalctl
