// Lists the rules of the switch's field processor as they are in the switch.
#include <ddal/ext.h>

#include <cstring>

#include "switch/broadcom/bounded_list.h"
#include "switch/broadcom/egress_mask.h"
#include "switch/broadcom/field_entry.h"
#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

namespace {

static_assert(sizeof(ddal_ext_switch_rule) == 112);

constexpr int kMostGroups = 64;

struct Groups {
    int numbers[kMostGroups];
    int count = 0;
};

int visit_group(int, int group, void *data)
{
    auto *const groups = static_cast<Groups *>(data);
    if (groups->count < kMostGroups)
        groups->numbers[groups->count++] = group;
    return 0;
}

// Reads the ports. A device without the qualifier for several ports has no entry with it, so the set stays empty.
int read_ports(int entry, bcm_pbmp_t *ports)
{
    bcm_pbmp_t mask{};
    const int rv = sdk_result(bcm_field_qualify_InPorts_get, kUnit, entry, ports, &mask);
    if (rv == BCM_E_NONE || rv == BCM_E_NOT_FOUND || rv == BCM_E_UNAVAIL)
        return 0;
    log_entry_failure({__func__, __LINE__, "bcm_field_qualify_InPorts_get"}, entry, rv);
    return rv;
}

// Reads the qualifiers. One that is not set, or that the entry's group lacks, matches everything. Returns 0 or the
// SDK's result, logged.
int read_qualifiers(int entry, ddal_ext_switch_rule *rule)
{
    int port = 0;
    int port_mask = 0;
    uint8_t format = 0;
    uint8_t format_mask = 0;
    uint16_t type = 0;
    uint16_t type_mask = 0;
    uint8_t mac_mask[6] = {};
    bcm_pbmp_t ports{};
    int rv = sdk_if_set(entry, bcm_field_qualify_InPort_get, &port, &port_mask);
    if (rv == 0)
        rv = sdk_if_set(entry, bcm_field_qualify_VlanFormat_get, &format, &format_mask);
    if (rv == 0)
        rv = sdk_if_set(entry, bcm_field_qualify_EtherType_get, &type, &type_mask);
    if (rv == 0)
        rv = sdk_if_set(entry, bcm_field_qualify_DstMac_get, &rule->mac, &mac_mask);
    if (rv == 0)
        rv = read_ports(entry, &ports);
    if (port_mask != 0)
        rule->in_port = static_cast<uint32_t>(port);
    if (format_mask != 0)
        rule->tagged = format & BCM_FIELD_VLAN_FORMAT_OUTER_TAGGED;
    if (type_mask != 0)
        rule->ethertype = type;
    rule->has_mac = mac_mask[0] != 0;
    memcpy(rule->in_ports, ports.pbits, sizeof rule->in_ports);
    return rv;
}

// Reads the actions. Returns 0 or the SDK's result, logged.
int read_actions(int entry, ddal_ext_switch_rule *rule)
{
    std::optional<FieldAction> action;
    int rv = read_action(entry, bcmFieldActionCosQNew, &action);
    if (rv == 0 && action)
        rule->queue = action->first;
    if (rv == 0)
        rv = read_action(entry, bcmFieldActionRedirect, &action);
    if (rv == 0 && action)
        rule->to_port = port_of_redirection(*action);
    if (rv == 0)
        rv = read_action(entry, bcmFieldActionPrioPktCancel, &action);
    rule->keeps_pcp = action.has_value();
    if (rv == 0)
        rv = read_action(entry, bcmFieldActionDrop, &action);
    rule->drops = action.has_value();
    bcm_pbmp_t mask = egress_mask_of({}); // an entry without a mask blocks nothing
    if (rv == 0)
        rv = sdk_if_set(entry, bcm_field_action_ports_get, bcmFieldActionEgressMask, &mask);
    memcpy(rule->blocked, egress_mask_of(mask).pbits, sizeof rule->blocked);
    return rv;
}

int add_rules_of(int group, BoundedList<ddal_ext_switch_rule> *list)
{
    FieldEntryList entries;
    if (const int rv = entries.read(static_cast<FieldGroup>(group)); rv != 0)
        return rv;
    for (const int entry : entries) {
        ddal_ext_switch_rule rule{};
        rule.group = static_cast<uint32_t>(group);
        rule.entry = static_cast<uint32_t>(entry);
        rule.in_port = rule.tagged = rule.ethertype = rule.to_port = rule.queue = DDAL_EXT_SWITCH_NONE;
        int rv = read_qualifiers(entry, &rule);
        if (rv == 0)
            rv = read_actions(entry, &rule);
        if (rv != 0)
            return rv;
        list->add(rule);
    }
    return 0;
}

} // namespace

int ddal_ext_switch_rules(struct ddal_ext_switch_rule *list, uint32_t *size)
{
    if (check_list(__func__, list, size) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    Groups groups;
    BoundedList<ddal_ext_switch_rule> rules{list, *size};
    int rv = sdk_on_unit(bcm_field_group_traverse, visit_group, &groups);
    for (int i = 0; rv == 0 && i < groups.count; i++)
        rv = add_rules_of(groups.numbers[i], &rules);
    if (rv != 0)
        return log_error(DDAL_ERR_FAILURE, "Reading the field rules failed\n");
    return rules.settle(size);
}
