#include "daemon/models/field_rules.h"

#include <algorithm>
#include <cstdio>

#include "daemon/models/switch_words.h"

namespace vboard {

namespace {

constexpr size_t kSlices = 8;           // groups that the hardware has room for
constexpr size_t kEntriesOfGroup = 256; // entries of one group
constexpr int64_t kFirstReserved = 0x1000000;
constexpr int64_t kRedirections[] = {bcmFieldActionRedirect, 30, 31, 32, bcmFieldActionEgressMask};
constexpr int64_t kByPortSet[] = {32, 36, bcmFieldActionEgressMask, 38};
constexpr int64_t kStageIngress = bcmFieldQualifyStageIngress;

template <typename List>
bool holds(const List &list, int64_t value)
{
    return std::find(std::begin(list), std::end(list), value) != std::end(list);
}

// The words of a set that hold ports, the one of the highest ports first.
std::string set_text(const PortSet &set)
{
    SwitchWords words;
    append(&words, set);
    while (words.size() > 1 && words.back() == 0)
        words.pop_back();
    std::string text = "0x";
    char word[16];
    for (size_t i = words.size(); i-- > 0;) {
        snprintf(word, sizeof word, "%08x", static_cast<unsigned>(words[i]));
        text += word;
    }
    return text;
}

} // namespace

struct FieldRules::Handler {
    const char *name;
    size_t words;
    SwitchWords (FieldRules::*handle)(const SwitchWords &in);
};
const FieldRules::Handler FieldRules::kHandlers[] = {
    {"bcm_field_group_config_create", 3, &FieldRules::create_group}, // id, priority, qualifiers...
    {"bcm_field_group_destroy", 2, &FieldRules::destroy_group},
    {"bcm_field_group_traverse", 1, &FieldRules::list_groups},
    {"bcm_field_entry_create_id", 3, &FieldRules::create_entry},
    {"bcm_field_entry_destroy", 2, &FieldRules::destroy_entry},
    {"bcm_field_entry_install", 2, &FieldRules::install_entry},
    {"bcm_field_entry_remove", 2, &FieldRules::remove_entry},
    {"bcm_field_entry_multi_get", 3, &FieldRules::list_entries},
    {"bcm_field_entry_prio_set", 3, &FieldRules::set_priority},
    {"bcm_field_qualify_clear", 2, &FieldRules::qualify_clear},
    {"bcm_field_qualify_InPort", 5, &FieldRules::qualify},         // entry, qualifier, data, mask
    {"bcm_field_qualify_InPorts", 19, &FieldRules::qualify_ports}, // entry, qualifier, two sets
    {"bcm_field_qualify_DstMac", 5, &FieldRules::qualify},
    {"bcm_field_qualify_EtherType", 5, &FieldRules::qualify},
    {"bcm_field_qualify_VlanFormat", 5, &FieldRules::qualify},
    {"bcm_field_qualify_InPort_get", 3, &FieldRules::qualifier_get},
    {"bcm_field_qualify_InPorts_get", 3, &FieldRules::ports_qualifier_get},
    {"bcm_field_qualify_DstMac_get", 3, &FieldRules::qualifier_get},
    {"bcm_field_qualify_EtherType_get", 3, &FieldRules::qualifier_get},
    {"bcm_field_qualify_VlanFormat_get", 3, &FieldRules::qualifier_get},
    {"bcm_field_action_add", 5, &FieldRules::add_action},
    {"bcm_field_action_ports_add", 11, &FieldRules::add_ports_action}, // entry, action, a set
    {"bcm_field_action_get", 3, &FieldRules::get_action},
    {"bcm_field_action_ports_get", 3, &FieldRules::get_ports_action},
    {"bcm_field_action_remove", 3, &FieldRules::remove_action},
};

SwitchWords FieldRules::call(const std::string &name, const SwitchWords &in, const PortSet &ports)
{
    ports_ = ports;
    for (const Handler &handler : kHandlers) {
        if (name != handler.name)
            continue;
        if (in.size() < handler.words)
            return failed(kInternal);
        return (this->*handler.handle)(in);
    }
    return failed(kUnavailable);
}

bool FieldRules::has_port(int64_t number) const
{
    return is_within(number, kPortsOfSet - 1) && ports_[static_cast<size_t>(number)];
}

FieldRules::Entry *FieldRules::entry_of(int64_t number)
{
    const auto found = entries_.find(number);
    return found == entries_.end() ? nullptr : &found->second;
}

SwitchWords FieldRules::create_group(const SwitchWords &in)
{
    std::vector<int64_t> qualifiers(in.begin() + 3, in.end());
    if (groups_.contains(in[1]))
        return failed(kExists);
    if (qualifiers.size() < 2 || !holds(qualifiers, kStageIngress))
        return failed(kParameter);
    for (const auto &[number, group] : groups_)
        if (group.priority == in[2])
            return failed(kParameter); // a priority belongs to one group
    if (groups_.size() == kSlices || (!offers_port_sets_ && holds(qualifiers, bcmFieldQualifyInPorts)))
        return failed(kResource);
    groups_[in[1]] = {in[2], std::move(qualifiers)};
    return done({in[1]});
}

SwitchWords FieldRules::destroy_group(const SwitchWords &in)
{
    for (const auto &[number, entry] : entries_)
        if (entry.group == in[1])
            return failed(kBusy);
    return failed(groups_.erase(in[1]) ? 0 : kNotFound);
}

SwitchWords FieldRules::list_groups(const SwitchWords &)
{
    SwitchWords out = done();
    for (const auto &[number, group] : groups_)
        out.push_back(number);
    return out;
}

SwitchWords FieldRules::create_entry(const SwitchWords &in)
{
    if (!groups_.contains(in[1]))
        return failed(kNotFound);
    if (!is_within(in[2], kFirstReserved - 1))
        return failed(kParameter);
    const auto others =
        std::count_if(entries_.begin(), entries_.end(), [&](const auto &entry) { return entry.second.group == in[1]; });
    if (entries_.contains(in[2]))
        return failed(kExists);
    if (static_cast<size_t>(others) == kEntriesOfGroup)
        return failed(kResource);
    entries_[in[2]].group = in[1];
    return done();
}

SwitchWords FieldRules::destroy_entry(const SwitchWords &in)
{
    const auto found = entries_.find(in[1]);
    if (found == entries_.end())
        return failed(kNotFound);
    Entry &entry = found->second;
    if (entry.hardware) // stays in the hardware, where nobody can reach it any more
        ghosts_.push_back({entry.group, groups_.at(entry.group).priority, entry.priority, *entry.hardware});
    entries_.erase(found);
    is_ordered_ = false;
    return done();
}

SwitchWords FieldRules::install_entry(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    entry->hardware = entry->rule;
    is_ordered_ = false;
    return done();
}

SwitchWords FieldRules::remove_entry(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    entry->hardware.reset();
    is_ordered_ = false;
    return done();
}

// As the SDK: size 0 asks for the number alone.
SwitchWords FieldRules::list_entries(const SwitchWords &in)
{
    if (!groups_.contains(in[1]))
        return failed(kNotFound);
    SwitchWords out = done();
    for (const auto &[number, entry] : entries_)
        if (entry.group == in[1])
            out.push_back(number);
    return out;
}

SwitchWords FieldRules::set_priority(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    entry->priority = in[2];
    is_ordered_ = false;
    return done();
}

SwitchWords FieldRules::qualify(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    if (!holds(groups_.at(entry->group).qualifiers, in[2]))
        return failed(kParameter);
    if (in[2] == bcmFieldQualifyInPort && in[4] != 0 && !has_port(in[3]))
        return failed(kPort);
    entry->rule.qualifiers[in[2]] = {in[3], in[4]};
    return done();
}

// What was never qualified matches everything.
SwitchWords FieldRules::qualifier_get(const SwitchWords &in)
{
    const Entry *entry = entry_of(in[1]);
    if (!entry || !holds(groups_.at(entry->group).qualifiers, in[2]))
        return failed(kNotFound);
    const auto found = entry->rule.qualifiers.find(in[2]);
    return found == entry->rule.qualifiers.end() ? done({0, 0}) : done({found->second.data, found->second.mask});
}

SwitchWords FieldRules::qualify_ports(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    if (!offers_port_sets_)
        return failed(kUnavailable);
    if (!holds(groups_.at(entry->group).qualifiers, in[2]))
        return failed(kParameter);
    entry->rule.in_ports = {port_set_of(in, 3), port_set_of(in, 3 + kWordsOfSet)};
    return done();
}

SwitchWords FieldRules::ports_qualifier_get(const SwitchWords &in)
{
    const Entry *entry = entry_of(in[1]);
    if (!offers_port_sets_)
        return failed(kUnavailable);
    if (!entry || !holds(groups_.at(entry->group).qualifiers, in[2]))
        return failed(kNotFound);
    const MaskedSet set = entry->rule.in_ports.value_or(MaskedSet{});
    SwitchWords out = done();
    append(&out, set.data);
    append(&out, set.mask);
    return out;
}

SwitchWords FieldRules::qualify_clear(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    entry->rule.qualifiers.clear();
    entry->rule.in_ports.reset();
    return done();
}

SwitchWords FieldRules::add_action(const SwitchWords &in)
{
    if (holds(kByPortSet, in[2]))
        return failed(kParameter); // takes a set of ports
    if (in[2] == bcmFieldActionRedirect && !has_port(local_port(in[4])))
        return failed(kPort);
    if (in[2] == bcmFieldActionCosQNew && !is_within(in[3], 7))
        return failed(kParameter);
    return put_action(in, {in[3], in[4], {}});
}

SwitchWords FieldRules::add_ports_action(const SwitchWords &in)
{
    return holds(kByPortSet, in[2]) ? put_action(in, {0, 0, port_set_of(in, 3)}) : failed(kParameter);
}

SwitchWords FieldRules::put_action(const SwitchWords &in, const Action &action)
{
    Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    auto &actions = entry->rule.actions;
    if (actions.contains(in[2]))
        return failed(kExists);
    if (holds(kRedirections, in[2]))
        for (const auto &[number, other] : actions)
            if (holds(kRedirections, number))
                return failed(kConfiguration); // one entry redirects or masks
    actions[in[2]] = action;
    return done();
}

SwitchWords FieldRules::get_action(const SwitchWords &in)
{
    const Entry *entry = entry_of(in[1]);
    if (!entry)
        return failed(kNotFound);
    const auto found = entry->rule.actions.find(in[2]);
    return found == entry->rule.actions.end() ? failed(kNotFound) : done({found->second.first, found->second.second});
}

SwitchWords FieldRules::get_ports_action(const SwitchWords &in)
{
    const Entry *entry = entry_of(in[1]);
    if (!entry || !entry->rule.actions.contains(in[2]))
        return failed(kNotFound);
    SwitchWords out = done();
    append(&out, entry->rule.actions.at(in[2]).ports);
    return out;
}

SwitchWords FieldRules::remove_action(const SwitchWords &in)
{
    Entry *entry = entry_of(in[1]);
    return failed(entry && entry->rule.actions.erase(in[2]) ? 0 : kNotFound);
}

// Puts the rules that are in the hardware in front of the ports that they can match, in the order of matching.
void FieldRules::order()
{
    std::vector<Step> all = ghosts_;
    for (const auto &[number, entry] : entries_)
        if (entry.hardware)
            all.push_back({entry.group, groups_.at(entry.group).priority, entry.priority, *entry.hardware});
    std::stable_sort(all.begin(), all.end(), [](const Step &a, const Step &b) {
        return std::pair{a.group_priority, a.priority} > std::pair{b.group_priority, b.priority};
    });
    for (uint32_t port = 0; port < steps_.size(); ++port) {
        steps_[port].clear();
        for (const Step &step : all) {
            const auto one = step.rule.qualifiers.find(bcmFieldQualifyInPort);
            const auto end = step.rule.qualifiers.end();
            const auto &set = step.rule.in_ports;
            if ((one == end || ((port ^ one->second.data) & one->second.mask) == 0) &&
                (!set || set->mask.none() || set->data[port]))
                steps_[port].push_back(step);
        }
    }
    is_ordered_ = true;
}

bool FieldRules::fits(const Rule &rule, const FieldKey &key)
{
    for (const auto &[qualifier, masked] : rule.qualifiers) {
        int64_t value = masked.data;
        if (qualifier == bcmFieldQualifyVlanFormat)
            value = key.vlan_format;
        else if (qualifier == bcmFieldQualifyDstMac)
            value = key.destination;
        else if (qualifier == bcmFieldQualifyEtherType)
            value = key.ethertype;
        if (((value ^ masked.data) & masked.mask) != 0)
            return false;
    }
    return true;
}

// What a group of a higher priority has said stands.
void FieldRules::apply(const Rule &rule, FieldVerdict *verdict)
{
    for (const auto &[number, action] : rule.actions) {
        if (number == bcmFieldActionDrop)
            verdict->drop = true;
        else if (number == bcmFieldActionPrioPktCancel)
            verdict->keep_pcp = true;
        else if (number == bcmFieldActionCosQNew && !verdict->queue)
            verdict->queue = action.first;
        else if (number == bcmFieldActionRedirect && !verdict->redirect)
            verdict->redirect = static_cast<uint32_t>(local_port(action.second));
        else if (number == bcmFieldActionEgressMask && !verdict->mask)
            verdict->mask = action.ports;
    }
}

FieldVerdict FieldRules::match(const FieldKey &key)
{
    if (!is_ordered_)
        order();
    FieldVerdict verdict;
    int64_t answered = -1; // each group answers with one rule
    for (const Step &step : steps_[key.port])
        if (step.group != answered && fits(step.rule, key)) {
            apply(step.rule, &verdict);
            answered = step.group;
        }
    return verdict;
}

std::string FieldRules::text_of(const Rule &rule)
{
    std::string text;
    for (const auto &[number, masked] : rule.qualifiers)
        text += " q" + std::to_string(number) + "=" + std::to_string(masked.data) + "/" + std::to_string(masked.mask);
    if (rule.in_ports)
        text += " q" + std::to_string(bcmFieldQualifyInPorts) + "=" + set_text(rule.in_ports->data) + "/" +
                set_text(rule.in_ports->mask);
    for (const auto &[number, action] : rule.actions)
        text += " a" + std::to_string(number) + "=" +
                (holds(kByPortSet, number) ? set_text(action.ports)
                                           : std::to_string(action.first) + "," + std::to_string(action.second));
    return text;
}

std::string FieldRules::show() const
{
    std::string text;
    for (const auto &[number, group] : groups_)
        text += "group " + std::to_string(number) + " priority " + std::to_string(group.priority) + "\n";
    for (const auto &[number, entry] : entries_)
        text += "entry " + std::to_string(number) + " group " + std::to_string(entry.group) +
                (entry.hardware ? text_of(*entry.hardware) == text_of(entry.rule) ? " installed" : " changed" : "") +
                text_of(entry.rule) + "\n";
    for (const Step &ghost : ghosts_)
        text += "lost group " + std::to_string(ghost.group) + text_of(ghost.rule) + "\n";
    return text;
}

} // namespace vboard
