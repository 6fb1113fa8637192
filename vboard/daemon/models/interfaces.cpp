#include "daemon/models/interfaces.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>

#include "daemon/board.h"
#include "daemon/models/links.h"
#include "daemon/models/multiport.h"

namespace vboard {

namespace {

constexpr uint32_t kFirstIndex = 2; // as if_nametoindex of a board's program counts: eth0 is 2
constexpr uint32_t kInterfaces = 4;
constexpr uint32_t kAllModes = 0x3F; // 10, 100 and 1000 Mb/s, half and full duplex

bool is_possible(const ethtool_cmd &settings)
{
    const bool speed = settings.speed == 10 || settings.speed == 100 || settings.speed == 1000;
    return speed && settings.duplex <= DUPLEX_FULL && settings.autoneg <= AUTONEG_ENABLE;
}

} // namespace

Interfaces::Interfaces(Board &board) : Model(board)
{
    ethtool_cmd settings{};
    settings.supported = kAllModes | SUPPORTED_Autoneg | SUPPORTED_TP;
    settings.advertising = kAllModes | ADVERTISED_Autoneg;
    settings.speed = 1000;
    settings.duplex = DUPLEX_FULL;
    settings.autoneg = AUTONEG_ENABLE;
    for (uint32_t i = 0; i < kInterfaces; ++i)
        interfaces_["eth" + std::to_string(i)] = {kFirstIndex + i, IFF_UP | IFF_BROADCAST | IFF_RUNNING | IFF_MULTICAST,
                                                  settings, true, false};
}

Interfaces::Interface *Interfaces::find(const std::string &name)
{
    const auto found = interfaces_.find(name);
    return found == interfaces_.end() ? nullptr : &found->second;
}

int Interfaces::set(Interface &interface, const ethtool_cmd &settings)
{
    if (interface.refuses)
        return -EOPNOTSUPP;
    if (!is_possible(settings))
        return -EINVAL;
    interface.settings = settings;
    return 0;
}

int Interfaces::ethtool(Interface &interface, uint8_t *record)
{
    uint32_t command = 0;
    memcpy(&command, record, sizeof command);
    if (command == ETHTOOL_GSET) {
        interface.settings.cmd = ETHTOOL_GSET;
        memcpy(record, &interface.settings, sizeof interface.settings);
        return 0;
    }
    if (command == ETHTOOL_SSET) {
        ethtool_cmd settings;
        memcpy(&settings, record, sizeof settings);
        return set(interface, settings);
    }
    if (command == ETHTOOL_GLINK) {
        const ethtool_value value{ETHTOOL_GLINK, interface.partner && interface.flags & IFF_UP ? 1u : 0u};
        memcpy(record, &value, sizeof value);
        return 0;
    }
    return -EOPNOTSUPP;
}

void Interfaces::tell(const Interface &interface) const
{
    const bool up = interface.partner && interface.flags & IFF_UP;
    if (auto *links = board().find<Links>())
        links->publish(LinkKind::kInterface, interface.index,
                       interface.flags & IFF_UP ? up ? "routable" : "no-carrier" : "off");
}

int Interfaces::request(uint32_t number, InterfaceRequest &request)
{
    request.name[sizeof request.name - 1] = '\0';
    Interface *interface = find(request.name);
    if (!interface)
        return -ENODEV;
    switch (number) {
    case SIOCGIFFLAGS: request.flags = interface->flags; return 0;
    case SIOCSIFFLAGS:
        interface->flags = static_cast<uint16_t>(request.flags);
        tell(*interface);
        return 0;
    case SIOCETHTOOL: return ethtool(*interface, request.record);
    case SIOCGMIIREG:
    case SIOCSMIIREG: {
        auto *const multiport = board().find<Multiport>();
        return multiport ? multiport->request(request.name, number, request) : -EOPNOTSUPP;
    }
    default: return -EOPNOTSUPP;
    }
}

bool Interfaces::has_link(const std::string &name) const
{
    const auto found = interfaces_.find(name);
    return found != interfaces_.end() && found->second.partner && found->second.flags & IFF_UP;
}

bool Interfaces::plug(const std::string &name, bool partner)
{
    Interface *interface = find(name);
    if (!interface)
        return false;
    interface->partner = partner;
    tell(*interface);
    return true;
}

std::string Interfaces::show() const
{
    std::string text;
    for (const auto &[name, interface] : interfaces_)
        text += name + (interface.flags & IFF_UP ? " up" : " down") + (interface.partner ? " link" : " no-link") +
                " speed " + std::to_string(interface.settings.speed) + " duplex " +
                std::to_string(interface.settings.duplex) + " autoneg " + std::to_string(interface.settings.autoneg) +
                " advertising " + std::to_string(interface.settings.advertising) + "\n";
    return text;
}

Interfaces::Interface &Interfaces::interface_in(const Given &given)
{
    for (auto &[name, interface] : interfaces_)
        if (given.says(name))
            return interface;
    throw ControlError("this board lacks the interface");
}

ControlTable Interfaces::commands()
{
    using Row = ControlRow<Interfaces>;
    const std::string name = "eth0|eth1|eth2|eth3";
    return {
        Row{"show", "print the settings and the link of each interface", &Interfaces::show},
        Row{"set " + name + " speed VALUE", "change the speed, in Mb/s",
            [](Interfaces &all, const Given &given) {
                ethtool_cmd_speed_set(&all.interface_in(given).settings, given.number("VALUE"));
            }},
        Row{"set " + name + " duplex VALUE", "change the duplex: 0 half, 1 full",
            [](Interfaces &all, const Given &given) {
                all.interface_in(given).settings.duplex = given.number<uint8_t>("VALUE");
            }},
        Row{"set " + name + " autoneg VALUE", "change the auto-negotiation: 0 off, 1 on",
            [](Interfaces &all, const Given &given) {
                all.interface_in(given).settings.autoneg = given.number<uint8_t>("VALUE");
            }},
        Row{"set " + name + " advertising VALUE", "change the advertised modes, as ethtool numbers them",
            [](Interfaces &all, const Given &given) {
                all.interface_in(given).settings.advertising = given.number("VALUE");
            }},
        Row{"refuse " + name + " on|off", "fail every request that changes settings",
            [](Interfaces &all, const Given &given) { all.interface_in(given).refuses = given.says("on"); }},
    };
}

} // namespace vboard
