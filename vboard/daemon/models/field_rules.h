// The field processor of the switch model: groups of entries that match received frames, and what they do with them.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemon/models/port_set.h"

namespace vboard {

// What a rule can see of a received frame.
struct FieldKey {
    uint32_t port;
    int64_t vlan_format; // tags, as the SDK's bits name them
    int64_t destination;
    int64_t ethertype;
};

// What the matching rules of all groups do together.
struct FieldVerdict {
    bool drop = false;
    bool keep_pcp = false;
    std::optional<uint32_t> redirect;
    std::optional<int64_t> queue;
    std::optional<PortSet> mask; // as it was written
};

class FieldRules {
public:
    // A call of the SDK, the unit as first word. The first word of the answer is the SDK's result.
    SwitchWords call(const std::string &name, const SwitchWords &in, const PortSet &ports);

    FieldVerdict match(const FieldKey &key);

    // Groups and entries, one a line, with what is only in the SDK and what is only in the hardware.
    std::string show() const;

    // Devices without the qualifier for several ports answer "unavailable".
    void offer_port_sets(bool offered) { offers_port_sets_ = offered; }

private:
    struct Masked {
        int64_t data;
        int64_t mask;
    };
    struct MaskedSet {
        PortSet data;
        PortSet mask;
    };
    struct Action {
        int64_t first;
        int64_t second;
        PortSet ports;
    };
    struct Rule {
        std::map<int64_t, Masked> qualifiers; // by the SDK's number
        std::optional<MaskedSet> in_ports;
        std::map<int64_t, Action> actions; // by the SDK's number
    };
    struct Entry {
        int64_t group;
        int64_t priority = 0;
        Rule rule;                    // as the SDK holds it
        std::optional<Rule> hardware; // as it was installed last
    };
    struct Group {
        int64_t priority;
        std::vector<int64_t> qualifiers;
    };
    struct Step { // a rule in the hardware, in the order of matching
        int64_t group;
        int64_t group_priority;
        int64_t priority;
        Rule rule;
    };
    struct Handler;
    static const Handler kHandlers[];

    SwitchWords create_group(const SwitchWords &in);
    SwitchWords destroy_group(const SwitchWords &in);
    SwitchWords list_groups(const SwitchWords &in);
    SwitchWords create_entry(const SwitchWords &in);
    SwitchWords destroy_entry(const SwitchWords &in);
    SwitchWords install_entry(const SwitchWords &in);
    SwitchWords remove_entry(const SwitchWords &in);
    SwitchWords list_entries(const SwitchWords &in);
    SwitchWords qualify(const SwitchWords &in);
    SwitchWords qualifier_get(const SwitchWords &in);
    SwitchWords qualify_ports(const SwitchWords &in);
    SwitchWords ports_qualifier_get(const SwitchWords &in);
    SwitchWords qualify_clear(const SwitchWords &in);
    SwitchWords add_action(const SwitchWords &in);
    SwitchWords add_ports_action(const SwitchWords &in);
    SwitchWords put_action(const SwitchWords &in, const Action &action);
    SwitchWords get_action(const SwitchWords &in);
    SwitchWords get_ports_action(const SwitchWords &in);
    SwitchWords remove_action(const SwitchWords &in);
    SwitchWords set_priority(const SwitchWords &in);

    bool has_port(int64_t number) const;
    Entry *entry_of(int64_t number);
    void order();
    static bool fits(const Rule &rule, const FieldKey &key);
    static void apply(const Rule &rule, FieldVerdict *verdict);
    static std::string text_of(const Rule &rule);

    std::map<int64_t, Group> groups_;
    std::map<int64_t, Entry> entries_;
    std::vector<Step> ghosts_; // rules whose entries were destroyed while they were installed
    std::array<std::vector<Step>, 32> steps_;
    PortSet ports_;
    bool is_ordered_ = false;
    bool offers_port_sets_ = true;
};

} // namespace vboard
