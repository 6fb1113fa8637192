#include "switch/broadcom/field_group.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace ddal::ethswitch {

namespace {

// The record of a group holds the set of its qualifiers, whose size shows the release of the SDK.
constexpr size_t kKnownSetSizes[] = {192, 228, 236, 256};
constexpr size_t kSet = 4;      // offset of the set in the record
constexpr size_t kPriority = 0; // the following offsets count from the end of the set
constexpr size_t kMode = 4;
constexpr size_t kGroup = 40;
constexpr uint32_t kWithIdAndMode = 0x1 | 0x4;
constexpr int kModeAuto = 4;
constexpr uint8_t kUnset = 0xA5;

struct GroupPlan {
    FieldGroup group;
    int priority;
    int qualifiers[3]; // besides the stage; 0: none
};

constexpr GroupPlan kPlans[] = {
    {kFrames, 50, {bcmFieldQualifyInPort, bcmFieldQualifyVlanFormat, 0}},
    {kEthertypes, 40, {bcmFieldQualifyInPort, bcmFieldQualifyEtherType, 0}},
    {kAddresses, 30, {bcmFieldQualifyInPort, bcmFieldQualifyVlanFormat, bcmFieldQualifyDstMac}},
    {kMasks, 20, {bcmFieldQualifyInPort, 0, 0}},
    {kDrops, 10, {bcmFieldQualifyInPorts, 0, 0}},
};

// Returns the size of the SDK's set of qualifiers, which its initialisation clears. 0 means that the SDK lacks field
// rules.
size_t measure_set()
{
    bcm_field_qset_t set;
    memset(&set, kUnset, sizeof set);
    if (!sdk_done(bcm_field_qset_t_init, &set))
        return 0;
    const auto *const bytes = reinterpret_cast<const uint8_t *>(&set);
    return static_cast<size_t>(std::find(bytes, bytes + sizeof set, kUnset) - bytes);
}

void put_word(bcm_field_group_config_t *config, size_t offset, int value)
{
    memcpy(reinterpret_cast<uint8_t *>(config) + offset, &value, sizeof value);
}

void add_qualifier(bcm_field_group_config_t *config, int qualifier)
{
    config->beyond[qualifier / 32] |= 1U << qualifier % 32;
}

int create_group(const GroupPlan &plan, size_t set_size)
{
    bcm_field_group_config_t config{};
    if (!sdk_done(bcm_field_group_config_t_init, &config))
        return BCM_E_UNAVAIL;
    config.flags = kWithIdAndMode;
    for (const int qualifier : plan.qualifiers)
        if (qualifier != 0)
            add_qualifier(&config, qualifier);
    add_qualifier(&config, bcmFieldQualifyStageIngress);
    put_word(&config, kSet + set_size + kPriority, plan.priority);
    put_word(&config, kSet + set_size + kMode, kModeAuto);
    put_word(&config, kSet + set_size + kGroup, plan.group);
    return sdk_result(bcm_field_group_config_create, kUnit, &config);
}

// A device without the qualifier for several ports works without the tunnel drop entry.
bool may_be_missing(const GroupPlan &plan, int result)
{
    return plan.group == kDrops && (result == BCM_E_RESOURCE || result == BCM_E_UNAVAIL);
}

void log_refusal(const char *caller, const GroupPlan &plan, size_t set_size, int result)
{
    if (result == BCM_E_UNAVAIL)
        log_line_as(LOG_ERR, caller,
                    "the switch's service does not know this SDK's records of field rules (%zu bytes): it is of "
                    "another release\n",
                    set_size);
    else
        log_line_as(LOG_ERR, caller, "creating field group %d failed: %s\n", static_cast<int>(plan.group),
                    sdk_text(result));
}

} // namespace

int create_field_groups(const char *caller)
{
    const size_t set_size = measure_set();
    if (std::find(std::begin(kKnownSetSizes), std::end(kKnownSetSizes), set_size) == std::end(kKnownSetSizes))
        return log_error_as(caller, DDAL_ERR_FAILURE,
                            "unknown release of the switch SDK: its records of field rules have %zu bytes\n", set_size);
    int created[std::size(kPlans)];
    int count = 0;
    for (const GroupPlan &plan : kPlans) {
        const int rv = create_group(plan, set_size);
        if (rv == BCM_E_NONE)
            created[count++] = plan.group;
        if (rv == BCM_E_NONE || rv == BCM_E_EXISTS || may_be_missing(plan, rv))
            continue;
        log_refusal(caller, plan, set_size, rv);
        while (count > 0)
            sdk_result(bcm_field_group_destroy, kUnit, created[--count]);
        return DDAL_ERR_FAILURE;
    }
    return 0;
}

int FieldEntryList::read(FieldGroup group)
{
    count_ = 0;
    const int rv = sdk_result(bcm_field_entry_multi_get, kUnit, group, kRoom, &entries_[0], &count_);
    if (rv == BCM_E_NOT_FOUND)
        return 0;
    if (rv != BCM_E_NONE)
        return log_error(rv, "bcm_field_entry_multi_get failed on field group %d: %s\n", static_cast<int>(group),
                         sdk_text(rv));
    return 0;
}

bool FieldEntryList::holds(int entry) const
{
    return std::find(begin(), end(), entry) != end();
}

} // namespace ddal::ethswitch
