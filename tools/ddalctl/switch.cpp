// ddalctl switch: ports, rates, counters and diagnostic shell of the Ethernet switch.
#include <ddal/bcmdiag.h>
#include <ddal/error.h>
#include <ddal/eth_switch.h>
#include <ddal/phy.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>

#include "ddalctl/families.h"
#include "ddalctl/interrupt.h"
#include "ddalctl/library.h"
#include "ddalctl/phy_device.h"
#include "ddalctl/report.h"
#include "ddalctl/switch_commands.h"

namespace ddalctl {

namespace {

constexpr const char *kShellService = "TCP port 5342 of 127.0.0.1";
constexpr const char *kSwitchService = "TCP port 20567 of 127.0.0.1";
constexpr uint32_t kDroppingQueues = 6;
constexpr uint32_t kPortWithoutClock = 17;

struct Rate {
    uint32_t limit;
    uint32_t burst;
};

void add_rate(Report &report, const std::string &name, const Rate &rate)
{
    report.add(name + "-limit", uint64_t{rate.limit},
               rate.limit ? std::to_string(rate.limit) + " kbit/s" : std::string("none"));
    report.add(name + "-burst", uint64_t{rate.burst}, std::to_string(rate.burst) + " kbit");
}

ddal_eth_switch_port_stats stats_of(uint32_t port)
{
    if (only_multiport())
        return multiport_stats(port);
    ddal_eth_switch_port_stats stats = {};
    require_switch(DDAL(ddal_eth_switch_get_port_stats)(kSwitch, port, &stats));
    return stats;
}

void ports(const Arguments &, Report &report)
{
    if (only_multiport())
        return multiport_ports(report);
    const auto in_use = ports_in_use();
    if (in_use.empty())
        throw Failure(-ENODEV, kNothingThere, "no PHY device of this board is behind a switch; see ddalctl phy list");
    for (const auto &[port, devices] : in_use) {
        const ddal_eth_switch_port_stats stats = stats_of(port);
        ddal_phy_copper_status status = {};
        const auto device = static_cast<uint32_t>(devices[0]);
        const bool told = DDAL(ddal_phy_copper_get_status)(device, &status) == 0;
        Report &row = report.row("ports");
        row.add("port", port);
        add_numbers(row, "phy-devices", devices);
        if (told)
            row.add("link", status.link ? "up" : "down");
        else
            row.add_missing("link");
        if (told && status.link)
            row.add("speed", uint64_t{status.speed}, std::to_string(status.speed) + " Mb/s");
        else
            row.add_missing("speed");
        row.add("rx-packets", stats.rx_packets);
        row.add("tx-packets", stats.tx_packets);
    }
}

void show(const Arguments &arguments, Report &report)
{
    const uint32_t port = arguments.number("PORT");
    if (only_multiport())
        return multiport_show(port, report);
    Rate egress = {};
    Rate ingress = {};
    require_switch(DDAL(ddal_eth_switch_get_port_egress_shaping)(kSwitch, port, &egress.limit, &egress.burst));
    require_switch(DDAL(ddal_eth_switch_get_port_ingress_limiting)(kSwitch, port, &ingress.limit, &ingress.burst));
    add_rate(report, "egress", egress);
    add_rate(report, "ingress", ingress);

    uint16_t svlan = 0;
    if (DDAL(ddal_eth_switch_get_default_svlan)(kSwitch, port, &svlan) == 0)
        report.add("default-svlan", uint64_t{svlan});
    else
        report.add_missing("default-svlan"); // none was set
}

// Reports the counts of a port in each second.
void watch_counters(uint32_t port, const Arguments &arguments, Report &report)
{
    const StopOnSignal stop(arguments);
    const uint32_t seconds = arguments.number_or("--count", UINT32_MAX);
    report.lasts("end");
    ddal_eth_switch_port_stats last = stats_of(port);
    for (uint32_t n = 0; n < seconds; n++) {
        sleep(1);
        stop.require_all(arguments, n, "seconds");
        if (StopOnSignal::stopped())
            return;
        const ddal_eth_switch_port_stats now = stats_of(port);
        const struct {
            const char *name;
            uint64_t rate;
        } rates[] = {
            {"rx-packets", now.rx_packets - last.rx_packets}, {"rx-octets", now.rx_octets - last.rx_octets},
            {"rx-dropped", now.rx_dropped - last.rx_dropped}, {"tx-packets", now.tx_packets - last.tx_packets},
            {"tx-octets", now.tx_octets - last.tx_octets},    {"tx-dropped", now.tx_dropped - last.tx_dropped},
        };
        last = now;
        std::string line;
        for (const auto &each : rates)
            line += std::string(line.empty() ? "" : "  ") + each.name + " " + std::to_string(each.rate) + "/s";
        report.event("rates", line, [&](Report &values) {
            for (const auto &each : rates)
                values.add(each.name, each.rate);
        });
    }
}

void counters(const Arguments &arguments, Report &report)
{
    const uint32_t port = arguments.number("PORT");
    if (arguments.given("--watch"))
        return watch_counters(port, arguments, report);
    for (const char *name : {"--count", kTimeout.name})
        if (arguments.given(name))
            throw WrongUse(std::string(name) + " requires --watch");
    if (only_multiport())
        return multiport_counters(port, report);
    const ddal_eth_switch_port_stats stats = stats_of(port);
    const struct {
        const char *name;
        uint64_t value;
    } rows[] = {
        {"rx-octets", stats.rx_octets},   {"rx-packets", stats.rx_packets}, {"rx-errors", stats.rx_errors},
        {"rx-dropped", stats.rx_dropped}, {"tx-octets", stats.tx_octets},   {"tx-packets", stats.tx_packets},
        {"tx-errors", stats.tx_errors},   {"tx-dropped", stats.tx_dropped},
    };
    for (const auto &row : rows)
        report.add(row.name, row.value);

    uint32_t drops[kDroppingQueues] = {};
    require_switch(DDAL(ddal_eth_switch_get_port_cos_dropped_pkts)(kSwitch, port, drops));
    for (uint32_t queue = 0; queue < kDroppingQueues; queue++)
        report.add("queue-" + std::to_string(queue) + "-dropped", uint64_t{drops[queue]});
}

void clear_drops(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_set_port_cos_dropped_pkts)(kSwitch, arguments.number("PORT")));
}

void shape(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_set_port_egress_shaping)(kSwitch, arguments.number("PORT"),
                                                                 arguments.number("LIMIT"), arguments.number("BURST")));
}

void limit(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_set_port_ingress_limiting)(
        kSwitch, arguments.number("PORT"), arguments.number("LIMIT"), arguments.number("BURST")));
}

void synce(const Arguments &arguments, Report &)
{
    if (arguments.number("PORT") == kPortWithoutClock)
        throw WrongUse("PORT: 17 is outside 10 to 16 and 18 to 21");
    require_switch(DDAL(ddal_eth_switch_set_synce_source)(kSwitch, arguments.number("PORT")));
}

// Runs a command in the switch's shell. `out` receives its output.
void run_in_shell(FILE *out, const std::string &command)
{
    const int result = DDAL(telnet_bcmdiag)(out, "%s", command.c_str());
    if (result == -ECONNREFUSED)
        throw Failure(result, kNothingThere, "the diagnostic shell of the switch is not running on this board",
                      kShellService);
    if (result != 0)
        throw Failure(result, kOperationFailed,
                      "the command, or the session with the switch's shell, ended with " + std::to_string(result),
                      kShellService);
}

void shell(const Arguments &arguments, Report &report)
{
    const std::string &command = arguments.text("COMMAND");
    if (command.empty() || command.find_first_of("\r\n") != std::string::npos)
        throw WrongUse("COMMAND: give one line for the switch's shell, in quotes if it has spaces");
    if (!report.json())
        return run_in_shell(stdout, command);

    char *text = nullptr;
    size_t size = 0;
    const std::unique_ptr<FILE, int (*)(FILE *)> out(open_memstream(&text, &size), fclose);
    if (!out)
        throw failure_of(-errno);
    run_in_shell(out.get(), command);
    fflush(out.get());
    report.add("output", std::string(text, size));
}

std::vector<Command> port_commands()
{
    const Argument limit_argument = {"LIMIT", Kind::number, "rate in kbit/s; 0 removes the limit"};
    const Argument burst = {"BURST", Kind::number, "burst in kbit"};
    return {
        {"ports", "show the ports that serve PHY devices, with link and traffic", {}, ports},
        {"show", "show the rates and settings of a port", {kPort}, show},
        {"counters",
         "show the counters of a port and the drops of its queues, or the counts of each second",
         {kPort,
          {"--watch", Kind::flag, "show the counts of each second, until interrupted"},
          {"--count", Kind::number, "stop after COUNT seconds", true, UINT32_MAX, 1},
          kTimeout},
         counters},
        {"clear-drops", "reset the drop counters of a port's queues", {kPort}, clear_drops},
        {"shape", "limit the rate that a port sends", {kPort, limit_argument, burst}, shape},
        {"limit", "limit the rate that a port receives", {kPort, limit_argument, burst}, limit},
        {"synce",
         "select the port (10 to 21, except 17) that supplies the clock of synchronous Ethernet",
         {{"PORT", Kind::number, "10 to 16, or 18 to 21", false, 21, 10}},
         synce},
        {"shell",
         "run one command in the switch's diagnostic shell",
         {{"COMMAND", Kind::text, "one line, in quotes"}},
         shell},
    };
}

} // namespace

void add_numbers(Report &report, const std::string &name, const std::vector<uint64_t> &numbers)
{
    std::string text;
    for (const uint64_t number : numbers)
        text += (text.empty() ? "" : ", ") + std::to_string(number);
    report.add(name, numbers, text.empty() ? "-" : text);
}

std::map<uint32_t, std::vector<uint64_t>> ports_in_use()
{
    std::map<uint32_t, std::vector<uint64_t>> ports;
    for (uint32_t device = 0; device < kPhyDevices; device++) {
        ddal_phy_association place = {};
        if (DDAL(ddal_phy_get_association)(device, &place) != 0 || place.switch_port < 0)
            continue;
        ports[static_cast<uint32_t>(place.switch_port)].push_back(device);
    }
    return ports;
}

void require_switch(int result)
{
    if (result == 0)
        return;
    const Failure failure = failure_of(result);
    if (result == -ENOSYS)
        throw Failure(
            result, failure.status(),
            "not available: this board has no Broadcom switch (only board type 9 has one; see ddalctl board), "
            "or its switch does not support it");
    if (result == DDAL_ERR_FAILURE)
        throw Failure(result, failure.status(), "the switch does not answer or refused").at(kSwitchService);
    throw failure_of(result).at(kSwitchService);
}

Family switch_family()
{
    std::vector<Command> commands = port_commands();
    for (const auto &of_part :
         {switch_multiport_commands, switch_qos_commands, switch_vlan_commands, switch_rule_commands})
        for (const Command &command : of_part())
            commands.push_back(command);
    return {"switch", "Ethernet switch behind the backhaul ports", commands};
}

} // namespace ddalctl
