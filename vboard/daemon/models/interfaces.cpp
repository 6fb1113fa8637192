#include "daemon/models/interfaces.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>

#include "daemon/board.h"
#include "daemon/models/links.h"

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
    default: return -EOPNOTSUPP;
    }
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

std::string Interfaces::control(const Words &words)
{
    const std::string &verb = word_at(words, 0, "show, set or refuse");
    if (verb == "show") {
        std::string text;
        for (const auto &[name, interface] : interfaces_)
            text += name + (interface.flags & IFF_UP ? " up" : " down") + (interface.partner ? " link" : " no-link") +
                    " speed " + std::to_string(interface.settings.speed) + " duplex " +
                    std::to_string(interface.settings.duplex) + " autoneg " +
                    std::to_string(interface.settings.autoneg) + " advertising " +
                    std::to_string(interface.settings.advertising) + "\n";
        return text;
    }
    Interface *interface = find(word_at(words, 1, "an interface"));
    if (!interface)
        throw ControlError("no interface \"" + words[1] + "\"; there are eth0 to eth3");
    if (verb == "refuse") {
        interface->refuses = word_at(words, 2, "on or off") == "on";
        return {};
    }
    if (verb != "set")
        throw ControlError("interfaces take show, set and refuse");
    const std::string &what = word_at(words, 2, "speed, duplex, autoneg or advertising");
    const auto value = static_cast<uint32_t>(number_of(word_at(words, 3, "a number")));
    ethtool_cmd &settings = interface->settings;
    if (what == "speed") {
        ethtool_cmd_speed_set(&settings, value);
    } else if (what == "duplex") {
        settings.duplex = static_cast<uint8_t>(value);
    } else if (what == "autoneg") {
        settings.autoneg = static_cast<uint8_t>(value);
    } else if (what == "advertising") {
        settings.advertising = value;
    } else {
        throw ControlError("an interface has speed, duplex, autoneg and advertising");
    }
    return {};
}

} // namespace vboard
