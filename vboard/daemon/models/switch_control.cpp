// What "vboard ctl switch" can do.
#include <algorithm>

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr const char *kReleases[] = {"6.5.16", "6.5.20", "6.5.24", "6.5.27", "old"};

int64_t release_of(const std::string &name)
{
    const auto *const found = std::find(std::begin(kReleases), std::end(kReleases), name);
    if (found == std::end(kReleases))
        throw ControlError("releases of the SDK are 6.5.16, 6.5.20, 6.5.24, 6.5.27 and old");
    return found - kReleases;
}

} // namespace

void Switch::set_release(const Words &words)
{
    release_ = release_of(word_at(words, 1, "a release"));
    service_release_ = words.size() > 2 ? release_of(words[2]) : release_;
}

// False: not an option.
bool Switch::set_option(const Words &words)
{
    const std::string &value = word_at(words, 1, "a value");
    if (words[0] == "mask" && (value == "keeps" || value == "blocks"))
        mask_keeps_ = value == "keeps";
    else if (words[0] == "rules" && value == "clear")
        rules_ = FieldRules();
    else if (words[0] == "port-sets" && (value == "on" || value == "off"))
        rules_.offer_port_sets(value == "on");
    else
        return false;
    return true;
}

void Switch::count_traffic(const Words &words)
{
    const auto number = static_cast<uint32_t>(local_port(static_cast<int64_t>(number_of(word_at(words, 1, "a port")))));
    Port *port = port_of(number);
    if (!port)
        throw ControlError("the switch has no such port");
    if (!has_link(number))
        return; // nothing passes
    const bool received = word_at(words, 2, "rx or tx") == "rx";
    port->counters[received ? snmpIfHCInUcastPkts : snmpIfHCOutUcastPkts] += number_of(word_at(words, 3, "packets"));
    port->counters[received ? snmpIfHCInOctets : snmpIfHCOutOctets] += number_of(word_at(words, 4, "bytes"));
}

std::string Switch::control(const Words &words)
{
    const std::string &verb = word_at(words, 0, "show, calls, send, sent, rules, fail, release, learn or phy");
    if (verb == "calls")
        return std::exchange(calls_, {});
    if (verb == "sent")
        return sent();
    if (verb == "rules" && words.size() == 1)
        return rules_.show();
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
        set_release(words);
    } else if (verb == "send") {
        send_command(words);
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
    } else if (!set_option(words)) {
        throw ControlError(
            "the switch takes show, calls, send, sent, rules [clear], fail, heal, release, mask keeps|blocks, "
            "port-sets on|off, traffic, drop, learn and phy");
    }
    return {};
}

} // namespace vboard
