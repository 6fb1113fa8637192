// The state of the switch as a whole: kept, compared, restored.
#include <sstream>
#include <tuple>

#include "daemon/models/switch.h"

namespace vboard {

struct Switch::Kept {
    decltype(Switch::ports_) ports;
    decltype(Switch::phys_) phys;
    decltype(Switch::vlans_) vlans;
    decltype(Switch::translations_) translations, egress;
    decltype(Switch::protocols_) protocols;
    decltype(Switch::addresses_) addresses;
    FieldRules rules;
    bool shares_addresses;
    uint32_t clock_port;
    std::string text;
};

// All that calls can set, without what traffic counts.
std::string Switch::state_text()
{
    std::ostringstream out;
    const auto words = [&out](const std::string &name, const auto &list) {
        out << name;
        for (const auto &word : list)
            out << ' ' << static_cast<int64_t>(word);
        out << '\n';
    };
    for (const auto &[number, port] : ports_) {
        const std::string start = "port " + std::to_string(number) + " ";
        std::istringstream lines(show(number));
        for (std::string line; std::getline(lines, line);)
            out << start << line << '\n';
        words(start + "new-dscp", port.dscp_new);
        words(start + "dscp-priority", port.dscp_priority);
        words(start + "queues", port.queue_of_priority);
        words(start + "weights", port.queues.weights());
        words(start + "rates",
              std::array{port.egress_rate[0], port.egress_rate[1], port.ingress_rate[0], port.ingress_rate[1]});
        if (port.default_action)
            words(start + "default-action", *port.default_action);
        for (const auto &[control, value] : port.vlan_control)
            out << start << "control " << control << ' ' << value << '\n';
    }
    for (size_t mdio = 0; mdio < phys_.size(); ++mdio) {
        std::istringstream lines(phys_[mdio].text());
        for (std::string line; std::getline(lines, line);)
            out << "phy " << mdio << ' ' << line << '\n';
    }
    for (const auto &[number, vlan] : vlans_)
        out << "vlan " << number << " members " << vlan.members << " untagged " << vlan.untagged << '\n';
    for (const auto *const table : {&translations_, &egress_})
        for (const auto &[key, translation] : *table) {
            words(table == &egress_ ? "egress" : "translation", key);
            words("  action", translation.action);
        }
    for (const auto &[place, protocol] : protocols_)
        words("protocol " + std::to_string(place.first) + " " + std::to_string(place.second), protocol.action);
    for (const auto &[place, address] : addresses_)
        out << "address " << place.first << " vlan " << place.second << " port " << address.port << " flags "
            << address.flags << '\n';
    out << "shares-addresses " << shares_addresses_ << "\nclock-port " << clock_port_ << '\n' << rules_.show();
    return out.str();
}

std::string Switch::changes()
{
    if (!kept_)
        throw ControlError("nothing is kept to compare with");
    std::map<std::string, int> lines; // how often more than before
    std::istringstream before(kept_->text), now(state_text());
    for (std::string line; std::getline(before, line);)
        --lines[line];
    for (std::string line; std::getline(now, line);)
        ++lines[line];
    std::string changed;
    for (const auto &[line, more] : lines)
        if (more != 0)
            changed += (more < 0 ? "-" : "+") + line + "\n";
    return changed;
}

void Switch::keep()
{
    kept_ = std::make_shared<Kept>(Kept{ports_, phys_, vlans_, translations_, egress_, protocols_, addresses_, rules_,
                                        shares_addresses_, clock_port_, state_text()});
}

void Switch::restore()
{
    if (!kept_)
        throw ControlError("nothing is kept to restore");
    std::tie(ports_, phys_, vlans_, translations_, egress_, protocols_, addresses_, rules_, shares_addresses_,
             clock_port_) =
        std::tie(kept_->ports, kept_->phys, kept_->vlans, kept_->translations, kept_->egress, kept_->protocols,
                 kept_->addresses, kept_->rules, kept_->shares_addresses, kept_->clock_port);
    for (const auto &[number, port] : ports_)
        settle(number);
}

} // namespace vboard
