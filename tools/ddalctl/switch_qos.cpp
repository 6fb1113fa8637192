// ddalctl switch: the queues of a port: mapping of frames, weights.
#include <ddal/eth_switch.h>

#include <sstream>
#include <string>

#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/switch_commands.h"

namespace ddalctl {

namespace {

constexpr uint32_t kQueues = 8;
constexpr uint32_t kDscps = 64;
constexpr uint32_t kPcps = 8;
constexpr Choice kModes[] = {{"pcp", DDAL_ETH_SWITCH_MAP_PCP}, {"dscp", DDAL_ETH_SWITCH_MAP_DSCP}};
constexpr Choice kOnOff[] = {{"off", 0}, {"on", 1}};

template <typename Operation>
uint32_t value_of(Operation operation, uint32_t port)
{
    uint32_t value = 0;
    require_switch(operation(kSwitch, port, &value));
    return value;
}

void qos(const Arguments &arguments, Report &report)
{
    const uint32_t port = arguments.number("PORT");
    const uint32_t enabled = value_of(DDAL(ddal_eth_switch_get_qos_status), port);
    const uint32_t mode = value_of(DDAL(ddal_eth_switch_get_port_mapping_mode), port);
    report.add("qos", enabled != 0, enabled ? "on" : "off");
    report.add("mapping", mode == DDAL_ETH_SWITCH_MAP_DSCP ? "dscp" : "pcp");

    uint32_t queue = 0;
    if (DDAL(ddal_eth_switch_get_port_default_cosq)(kSwitch, port, &queue) == 0)
        report.add("default-queue", uint64_t{queue});
    else
        report.add_missing("default-queue"); // none was set
    uint32_t quanta[kQueues] = {};
    require_switch(DDAL(ddal_eth_switch_get_port_cosq_quanta)(kSwitch, port, quanta));
    for (uint32_t number = 0; number < kQueues; number++) {
        Report &row = report.row("queues");
        row.add("queue", uint64_t{number});
        row.add("weight", uint64_t{quanta[number]},
                quanta[number] ? std::to_string(quanta[number]) : "strict priority");
    }
}

// Adds the queue of the frames of each priority.
template <typename Operation>
void add_map(Report &report, const char *name, Operation operation, uint32_t port, uint32_t priorities)
{
    for (uint32_t priority = 0; priority < priorities; priority++) {
        uint32_t queue = 0;
        require_switch(operation(kSwitch, port, priority, &queue));
        Report &row = report.row("map");
        row.add(name, uint64_t{priority});
        row.add("queue", uint64_t{queue});
    }
}

void map(const Arguments &arguments, Report &report)
{
    const uint32_t port = arguments.number("PORT");
    if (arguments.choice("PRIORITY", kModes) == DDAL_ETH_SWITCH_MAP_DSCP)
        add_map(report, "dscp", DDAL(ddal_eth_switch_get_port_mapping_dscp_to_cosq), port, kDscps);
    else
        add_map(report, "pcp", DDAL(ddal_eth_switch_get_port_mapping_pcp_to_cosq), port, kPcps);
}

void set_qos(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    const bool on = arguments.choice("STATE", kOnOff) != 0;
    require_switch(on ? DDAL(ddal_eth_switch_enable_qos)(kSwitch, port)
                      : DDAL(ddal_eth_switch_disable_qos)(kSwitch, port));
}

void set_mapping(const Arguments &arguments, Report &)
{
    const uint32_t mode = arguments.choice("PRIORITY", kModes);
    require_switch(DDAL(ddal_eth_switch_set_port_mapping_mode)(kSwitch, arguments.number("PORT"), mode));
}

// The switch changes the DSCP map in DSCP mode only.
void map_dscp(const Arguments &arguments, Report &)
{
    const uint32_t port = arguments.number("PORT");
    require_switch(DDAL(ddal_eth_switch_set_port_mapping_mode)(kSwitch, port, DDAL_ETH_SWITCH_MAP_DSCP));
    require_switch(DDAL(ddal_eth_switch_set_port_mapping_dscp_to_cosq)(kSwitch, port, arguments.number("DSCP"),
                                                                       arguments.number("QUEUE")));
}

void map_pcp(const Arguments &arguments, Report &)
{
    require_switch(DDAL(ddal_eth_switch_set_port_mapping_pcp_to_cosq)(
        kSwitch, arguments.number("PORT"), arguments.number("PCP"), arguments.number("QUEUE")));
}

void default_queue(const Arguments &arguments, Report &)
{
    require_switch(
        DDAL(ddal_eth_switch_set_port_default_cosq)(kSwitch, arguments.number("PORT"), arguments.number("QUEUE")));
}

void set_weights(const Arguments &arguments, Report &)
{
    const Argument weight = {"WEIGHTS", Kind::number, "", false, INT32_MAX};
    uint32_t quanta[kQueues] = {};
    uint32_t given = 0;
    std::istringstream words(arguments.text("WEIGHTS"));
    for (std::string word; std::getline(words, word, ','); given++) {
        Arguments parsed;
        parsed.set(weight, word);
        if (given < kQueues)
            quanta[given] = parsed.number("WEIGHTS");
    }
    if (given != kQueues)
        throw WrongUse("WEIGHTS: " + std::to_string(given) + " weights for 8 queues; give 8, separated by commas");
    require_switch(DDAL(ddal_eth_switch_set_port_cosq_quanta)(kSwitch, arguments.number("PORT"), quanta));
}

} // namespace

std::vector<Command> switch_qos_commands()
{
    const Argument priority = one_of<kModes>("PRIORITY", "dscp or pcp");
    const Argument queue = {"QUEUE", Kind::number, "queue, 0 to 7", false, kQueues - 1};
    return {
        {"qos", "show the mapping mode of a port and the weights of its queues", {kPort}, qos},
        {"map", "show the queue of each priority", {kPort, priority}, map},
        {"set-qos",
         "switch the DSCP lookup of a port on or off",
         {kPort, one_of<kOnOff>("STATE", "on or off")},
         set_qos},
        {"set-mapping", "set the mapping mode of a port", {kPort, priority}, set_mapping},
        {"map-dscp",
         "send frames of a DSCP to a queue; sets the mapping mode to dscp",
         {kPort, {"DSCP", Kind::number, "0 to 63", false, kDscps - 1}, queue},
         map_dscp},
        {"map-pcp",
         "send frames of a PCP to a queue",
         {kPort, {"PCP", Kind::number, "0 to 7", false, kPcps - 1}, queue},
         map_pcp},
        {"default-queue", "send frames without a tag to a queue", {kPort, queue}, default_queue},
        {"weights",
         "set the weights of a port's eight queues",
         {kPort, {"WEIGHTS", Kind::text, "eight numbers, separated by commas; 0 is strict priority"}},
         set_weights},
    };
}

} // namespace ddalctl
