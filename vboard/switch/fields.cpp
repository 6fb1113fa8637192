// The SDK's calls for the field processor.
#include <algorithm>
#include <cstring>

#include "switch/ask.h"

using namespace vboard::client_library;

namespace {

// Flags of a group's configuration
constexpr uint32_t kWithId = 1;
constexpr uint32_t kWithMode = 4;
constexpr int kParameter = -4;

bcm_pbmp_t set_of(const Answer &answer, size_t at)
{
    bcm_pbmp_t ports{};
    for (uint32_t &word : ports.pbits)
        word = static_cast<uint32_t>(answer.word(at++));
    return ports;
}

int qualify(const char *name, int unit, int entry, int qualifier, int64_t data, int64_t mask)
{
    return put(name, unit, entry, qualifier, data, mask);
}

template <typename Value>
int qualifier_of(const char *name, int unit, int entry, int qualifier, Value *data, Value *mask)
{
    return get_two(name, data, mask, unit, entry, qualifier);
}

// Returns a word of the configuration, counted from the end of its qualifier set.
int word_behind_qset(const bcm_field_group_config_t &config, size_t offset)
{
    int value = 0;
    memcpy(&value, reinterpret_cast<const uint8_t *>(&config) + 4 + sizes().qset + offset, sizeof value);
    return value;
}

} // namespace

void bcm_field_qset_t_init(bcm_field_qset_t *qset)
{
    memset(static_cast<void *>(qset), 0, sizes().qset);
}

void bcm_field_group_config_t_init(bcm_field_group_config_t *config)
{
    memset(static_cast<void *>(config), 0, sizes().group);
}

int bcm_field_group_config_create(int unit, bcm_field_group_config_t *config)
{
    if ((config->flags & (kWithId | kWithMode)) != (kWithId | kWithMode))
        return kParameter; // the model does not assign group numbers
    std::vector<int64_t> in{unit, word_behind_qset(*config, 40), word_behind_qset(*config, 0)};
    for (int qualifier = 0; qualifier < 32 * 32; ++qualifier)
        if (config->beyond[qualifier / 32] >> qualifier % 32 & 1)
            in.push_back(qualifier);
    return ask("bcm_field_group_config_create", in).result;
}

int bcm_field_group_destroy(int unit, int group)
{
    return put("bcm_field_group_destroy", unit, group);
}

int bcm_field_group_traverse(int unit, bcm_field_group_traverse_cb visit, void *user_data)
{
    const Answer answer = ask("bcm_field_group_traverse", {unit});
    int result = answer.result;
    for (size_t at = 0; result >= 0 && at < answer.words.size(); ++at)
        result = visit(unit, static_cast<int>(answer.words[at]), user_data);
    return result;
}

int bcm_field_entry_create_id(int unit, int group, int entry)
{
    return put("bcm_field_entry_create_id", unit, group, entry);
}

int bcm_field_entry_destroy(int unit, int entry)
{
    return put("bcm_field_entry_destroy", unit, entry);
}

int bcm_field_entry_install(int unit, int entry)
{
    return put("bcm_field_entry_install", unit, entry);
}

int bcm_field_entry_remove(int unit, int entry)
{
    return put("bcm_field_entry_remove", unit, entry);
}

int bcm_field_entry_prio_set(int unit, int entry, int priority)
{
    return put("bcm_field_entry_prio_set", unit, entry, priority);
}

int bcm_field_entry_multi_get(int unit, int group, int size, int *entries, int *count)
{
    const Answer answer = ask("bcm_field_entry_multi_get", {unit, group, size});
    if (answer.result != 0)
        return answer.result;
    *count = static_cast<int>(answer.words.size());
    if (size == 0)
        return 0;
    *count = std::min(*count, size);
    for (int i = 0; i < *count; ++i)
        entries[i] = static_cast<int>(answer.words[static_cast<size_t>(i)]);
    return 0;
}

int bcm_field_qualify_clear(int unit, int entry)
{
    return put("bcm_field_qualify_clear", unit, entry);
}

int bcm_field_qualify_InPort(int unit, int entry, int data, int mask)
{
    return qualify("bcm_field_qualify_InPort", unit, entry, bcmFieldQualifyInPort, data, mask);
}

int bcm_field_qualify_InPort_get(int unit, int entry, int *data, int *mask)
{
    return qualifier_of("bcm_field_qualify_InPort_get", unit, entry, bcmFieldQualifyInPort, data, mask);
}

int bcm_field_qualify_InPorts(int unit, int entry, bcm_pbmp_t data, bcm_pbmp_t mask)
{
    std::vector<int64_t> in{unit, entry, bcmFieldQualifyInPorts};
    append(in, data);
    append(in, mask);
    return ask("bcm_field_qualify_InPorts", in).result;
}

int bcm_field_qualify_InPorts_get(int unit, int entry, bcm_pbmp_t *data, bcm_pbmp_t *mask)
{
    const Answer answer = ask("bcm_field_qualify_InPorts_get", {unit, entry, bcmFieldQualifyInPorts});
    *data = set_of(answer, 0);
    *mask = set_of(answer, std::size(data->pbits));
    return answer.result;
}

int bcm_field_qualify_DstMac(int unit, int entry, uint8_t data[6], uint8_t mask[6])
{
    return qualify("bcm_field_qualify_DstMac", unit, entry, bcmFieldQualifyDstMac, number_of(data), number_of(mask));
}

int bcm_field_qualify_DstMac_get(int unit, int entry, uint8_t (*data)[6], uint8_t (*mask)[6])
{
    int64_t words[2] = {};
    const int result =
        qualifier_of("bcm_field_qualify_DstMac_get", unit, entry, bcmFieldQualifyDstMac, &words[0], &words[1]);
    store_mac(words[0], *data);
    store_mac(words[1], *mask);
    return result;
}

int bcm_field_qualify_EtherType(int unit, int entry, uint16_t data, uint16_t mask)
{
    return qualify("bcm_field_qualify_EtherType", unit, entry, bcmFieldQualifyEtherType, data, mask);
}

int bcm_field_qualify_EtherType_get(int unit, int entry, uint16_t *data, uint16_t *mask)
{
    return qualifier_of("bcm_field_qualify_EtherType_get", unit, entry, bcmFieldQualifyEtherType, data, mask);
}

int bcm_field_qualify_VlanFormat(int unit, int entry, uint8_t data, uint8_t mask)
{
    return qualify("bcm_field_qualify_VlanFormat", unit, entry, bcmFieldQualifyVlanFormat, data, mask);
}

int bcm_field_qualify_VlanFormat_get(int unit, int entry, uint8_t *data, uint8_t *mask)
{
    return qualifier_of("bcm_field_qualify_VlanFormat_get", unit, entry, bcmFieldQualifyVlanFormat, data, mask);
}

int bcm_field_action_add(int unit, int entry, bcm_field_action_t action, uint32_t param0, uint32_t param1)
{
    return put("bcm_field_action_add", unit, entry, static_cast<int>(action), param0, param1);
}

int bcm_field_action_get(int unit, int entry, bcm_field_action_t action, uint32_t *param0, uint32_t *param1)
{
    return get_two("bcm_field_action_get", param0, param1, unit, entry, static_cast<int>(action));
}

int bcm_field_action_remove(int unit, int entry, bcm_field_action_t action)
{
    return put("bcm_field_action_remove", unit, entry, static_cast<int>(action));
}

int bcm_field_action_ports_add(int unit, int entry, bcm_field_action_t action, bcm_pbmp_t ports)
{
    std::vector<int64_t> in{unit, entry, action};
    append(in, ports);
    return ask("bcm_field_action_ports_add", in).result;
}

int bcm_field_action_ports_get(int unit, int entry, bcm_field_action_t action, bcm_pbmp_t *ports)
{
    const Answer answer = ask("bcm_field_action_ports_get", {unit, entry, action});
    *ports = set_of(answer, 0);
    return answer.result;
}
