// Shared parts of `ddalctl switch`.
#pragma once

#include <ddal/eth_switch.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ddalctl/command.h"
#include "ddalctl/failure.h"
#include "ddalctl/report.h"

namespace ddalctl {

inline constexpr uint32_t kSwitch =
    DDAL_ETH_SWITCH_BROADCOM; // of board type 9; other boards may have the multiport switch
inline const Argument kPort = {"PORT", Kind::number,
                               "port of the switch; \"ddalctl switch ports\" lists the ports in use", false, 255};

inline constexpr Argument kSvlan = {"SVLAN", Kind::number, "S-VLAN, 1 to 20", false, 20, 1};
inline constexpr Argument kOptionalSvlan = {"SVLAN", Kind::number, kSvlan.help, true, 20, 1};

// Returns the PHY devices that each port of the switch serves.
std::map<uint32_t, std::vector<uint64_t>> ports_in_use();

// Adds a list of numbers, "0, 2" for people.
void add_numbers(Report &report, const std::string &name, const std::vector<uint64_t> &numbers);

// Throws a Failure that names the next step, unless the result is 0.
void require_switch(int result);

// Reads a whole list of the switch, of any length. get(entries, &size) is a list operation of the library.
template <typename Entry, typename Get>
std::vector<Entry> switch_list(Get get)
{
    std::vector<Entry> entries(1024);
    auto size = static_cast<uint32_t>(entries.size());
    int result = get(entries.data(), &size);
    while (result == -ENOMEM && size > 0) { // size: entries that did not fit
        entries.resize(entries.size() + size);
        size = static_cast<uint32_t>(entries.size());
        result = get(entries.data(), &size);
    }
    require_switch(result);
    entries.resize(size);
    return entries;
}

// Converts an Ethernet address from and to text. mac_of throws WrongUse.
using Mac = std::array<uint8_t, 6>;
Mac mac_of(const std::string &text);
std::string mac_text(const uint8_t (&mac)[6]);

// The external multiport switch: reports whether the board has it and no other, and serves the commands of a port on
// it.
bool only_multiport();
ddal_eth_switch_port_stats multiport_stats(uint32_t port);
void multiport_ports(Report &report);
void multiport_show(uint32_t port, Report &report);
void multiport_counters(uint32_t port, Report &report);

std::vector<Command> switch_multiport_commands();
std::vector<Command> switch_qos_commands();
std::vector<Command> switch_rule_commands();
std::vector<Command> switch_vlan_commands();

} // namespace ddalctl
