// The SDK's calls, each passed to the board's switch model as words.
#include <cstring>

#include "switch/ask.h"
#include "switch/broadcom/sdk.h"
#include "switch/release.h"

using namespace vboard::client_library;

namespace {

constexpr int kActionWords = 20;

void append(std::vector<int64_t> &words, const bcm_vlan_action_set_t &action)
{
    int64_t bytes[kActionWords];
    memcpy(bytes, &action, sizeof bytes);
    words.insert(words.end(), bytes, bytes + kActionWords);
}

// The SDK copies records of the size of its release, whatever size the caller declared.
void store_action(const int64_t *words, bcm_vlan_action_set_t *action)
{
    memset(static_cast<void *>(action), 0, sizes().action);
    memcpy(static_cast<void *>(action), words, kActionWords * sizeof *words);
}

int get_action(const char *name, const std::vector<int64_t> &in, bcm_vlan_action_set_t *action)
{
    const Answer answer = ask(name, in);
    if (answer.result == 0)
        store_action(answer.words.data(), action);
    return answer.result;
}

uint8_t *bytes_of(bcm_l2_addr_t *address)
{
    return reinterpret_cast<uint8_t *>(address);
}

void store_address(int64_t number, uint16_t vid, bcm_l2_addr_t *address)
{
    memset(static_cast<void *>(address), 0, sizes().address);
    store_mac(number, bytes_of(address) + sizes().mac);
    memcpy(bytes_of(address) + sizes().mac + 6, &vid, sizeof vid);
}

void store_port(int port, bcm_l2_addr_t *address)
{
    memcpy(bytes_of(address) + sizes().mac + 8, &port, sizeof port);
}

} // namespace

#define PORT_SET(name)                                                                                                 \
    int name##_set(int unit, int port, int value)                                                                      \
    {                                                                                                                  \
        return put(#name "_set", unit, port, value);                                                                   \
    }
#define PORT_GET(name)                                                                                                 \
    int name##_get(int unit, int port, int *value)                                                                     \
    {                                                                                                                  \
        return get(#name "_get", value, unit, port);                                                                   \
    }

// clang-format off
PORT_SET(bcm_port_autoneg)            PORT_GET(bcm_port_autoneg)
PORT_SET(bcm_port_duplex)             PORT_GET(bcm_port_duplex)
PORT_SET(bcm_port_speed)              PORT_GET(bcm_port_speed)
PORT_SET(bcm_port_loopback)           PORT_GET(bcm_port_loopback)
PORT_SET(bcm_port_master)             PORT_GET(bcm_port_master)
PORT_SET(bcm_port_dscp_map_mode)      PORT_GET(bcm_port_dscp_map_mode)
PORT_SET(bcm_port_untagged_priority)  PORT_GET(bcm_port_untagged_priority)
PORT_SET(bcm_port_enable)             PORT_GET(bcm_port_link_status)
PORT_GET(bcm_port_gport)
    // clang-format on

    int bcm_port_mdix_set(int unit, int port, bcm_port_mdix_t mode)
{
    return put("bcm_port_mdix_set", unit, port, static_cast<int>(mode));
}

int bcm_port_mdix_get(int unit, int port, bcm_port_mdix_t *mode)
{
    return get("bcm_port_mdix_get", mode, unit, port);
}

int bcm_port_phy_get(int unit, int port, uint32_t flags, uint32_t reg, uint32_t *data)
{
    return get("bcm_port_phy_get", data, unit, port, flags, reg);
}

int bcm_port_phy_set(int unit, int port, uint32_t flags, uint32_t reg, uint32_t data)
{
    return put("bcm_port_phy_set", unit, port, flags, reg, data);
}

int bcm_port_phy_modify(int unit, int port, uint32_t flags, uint32_t reg, uint32_t data, uint32_t mask)
{
    return put("bcm_port_phy_modify", unit, port, flags, reg, data, mask);
}

int bcm_port_ability_advert_get(int unit, int port, bcm_port_ability_t *ability)
{
    const Answer answer = ask("bcm_port_ability_advert_get", {unit, port});
    if (answer.result == 0) {
        memset(static_cast<void *>(ability), 0, release == Release::kOld ? 40 : 48);
        ability->speed_half_duplex = static_cast<uint32_t>(answer.word(0));
        ability->speed_full_duplex = static_cast<uint32_t>(answer.word(1));
        ability->pause = static_cast<uint32_t>(answer.word(2));
    }
    return answer.result;
}

int bcm_port_ability_advert_set(int unit, int port, bcm_port_ability_t *ability)
{
    return put("bcm_port_ability_advert_set", unit, port, ability->speed_half_duplex, ability->speed_full_duplex,
               ability->pause);
}

int bcm_port_rate_egress_set(int unit, int port, uint32_t kbits_sec, uint32_t kbits_burst)
{
    return put("bcm_port_rate_egress_set", unit, port, kbits_sec, kbits_burst);
}

int bcm_port_rate_egress_get(int unit, int port, uint32_t *kbits_sec, uint32_t *kbits_burst)
{
    return get_two("bcm_port_rate_egress_get", kbits_sec, kbits_burst, unit, port);
}

int bcm_port_rate_ingress_set(int unit, int port, uint32_t kbits_sec, uint32_t kbits_burst)
{
    return put("bcm_port_rate_ingress_set", unit, port, kbits_sec, kbits_burst);
}

int bcm_port_rate_ingress_get(int unit, int port, uint32_t *kbits_sec, uint32_t *kbits_burst)
{
    return get_two("bcm_port_rate_ingress_get", kbits_sec, kbits_burst, unit, port);
}

int bcm_port_dscp_map_set(int unit, int port, int dscp, int new_dscp, int priority)
{
    return put("bcm_port_dscp_map_set", unit, port, dscp, new_dscp, priority);
}

int bcm_port_dscp_map_get(int unit, int port, int dscp, int *new_dscp, int *priority)
{
    return get_two("bcm_port_dscp_map_get", new_dscp, priority, unit, port, dscp);
}

int bcm_stat_multi_get(int unit, int port, int n, bcm_stat_val_t *types, uint64_t *values)
{
    std::vector<int64_t> in{unit, port, n};
    for (int i = 0; i < n; ++i)
        in.push_back(types[i]);
    const Answer answer = ask("bcm_stat_multi_get", in);
    for (int i = 0; answer.result == 0 && i < n; ++i)
        values[i] = static_cast<uint64_t>(answer.word(static_cast<size_t>(i)));
    return answer.result;
}

int _shr_pbmp_bmeq(bcm_pbmp_t *a, bcm_pbmp_t *b)
{
    return memcmp(a, b, sizeof *a) == 0;
}

// --- class of service ---------------------------------------------------------------------------------------------

int bcm_cosq_stat_sync_get32(int unit, int gport, int queue, bcm_cosq_stat_t stat, uint32_t *value)
{
    return get("bcm_cosq_stat_sync_get32", value, unit, gport, queue, static_cast<int>(stat));
}

int bcm_cosq_stat_set32(int unit, int gport, int queue, bcm_cosq_stat_t stat, uint32_t value)
{
    return put("bcm_cosq_stat_set32", unit, gport, queue, static_cast<int>(stat), value);
}

int bcm_cosq_port_sched_set(int unit, bcm_pbmp_t ports, int mode, const int weights[8], int)
{
    std::vector<int64_t> in{unit};
    append(in, ports);
    in.push_back(mode);
    in.insert(in.end(), weights, weights + 8);
    return ask("bcm_cosq_port_sched_set", in).result;
}

int bcm_cosq_port_sched_get(int unit, bcm_pbmp_t ports, int *mode, int weights[8], int *delay)
{
    std::vector<int64_t> in{unit};
    append(in, ports);
    const Answer answer = ask("bcm_cosq_port_sched_get", in);
    if (answer.result == 0) {
        *mode = static_cast<int>(answer.word(0));
        *delay = 0;
        for (size_t i = 0; i < 8; ++i)
            weights[i] = static_cast<int>(answer.word(1 + i));
    }
    return answer.result;
}

int bcm_cosq_port_mapping_set(int unit, int port, int priority, int queue)
{
    return put("bcm_cosq_port_mapping_set", unit, port, priority, queue);
}

int bcm_cosq_port_mapping_get(int unit, int port, int priority, int *queue)
{
    return get("bcm_cosq_port_mapping_get", queue, unit, port, priority);
}

// --- VLAN ---------------------------------------------------------------------------------------------------------

void bcm_vlan_action_set_t_init(bcm_vlan_action_set_t *action)
{
    memset(static_cast<void *>(action), 0, sizes().action);
}

int bcm_vlan_create(int unit, uint16_t vid)
{
    return put("bcm_vlan_create", unit, vid);
}

int bcm_vlan_destroy(int unit, uint16_t vid)
{
    return put("bcm_vlan_destroy", unit, vid);
}

int bcm_vlan_port_add(int unit, uint16_t vid, bcm_pbmp_t ports, bcm_pbmp_t untagged)
{
    std::vector<int64_t> in{unit, vid};
    append(in, ports);
    append(in, untagged);
    return ask("bcm_vlan_port_add", in).result;
}

int bcm_vlan_port_remove(int unit, uint16_t vid, bcm_pbmp_t ports)
{
    std::vector<int64_t> in{unit, vid};
    append(in, ports);
    return ask("bcm_vlan_port_remove", in).result;
}

int bcm_vlan_port_get(int unit, uint16_t vid, bcm_pbmp_t *ports, bcm_pbmp_t *untagged)
{
    const Answer answer = ask("bcm_vlan_port_get", {unit, vid});
    for (size_t i = 0; answer.result == 0 && i < 8; ++i) {
        ports->pbits[i] = static_cast<uint32_t>(answer.word(i));
        untagged->pbits[i] = static_cast<uint32_t>(answer.word(8 + i));
    }
    return answer.result;
}

int bcm_vlan_port_default_action_set(int unit, int port, bcm_vlan_action_set_t *action)
{
    std::vector<int64_t> in{unit, port};
    append(in, *action);
    return ask("bcm_vlan_port_default_action_set", in).result;
}

int bcm_vlan_port_default_action_get(int unit, int port, bcm_vlan_action_set_t *action)
{
    return get_action("bcm_vlan_port_default_action_get", {unit, port}, action);
}

int bcm_vlan_port_default_action_delete(int unit, int port)
{
    return put("bcm_vlan_port_default_action_delete", unit, port);
}

int bcm_vlan_port_protocol_action_add(int unit, int port, int frame, uint16_t ether, bcm_vlan_action_set_t *action)
{
    std::vector<int64_t> in{unit, port, frame, ether};
    append(in, *action);
    return ask("bcm_vlan_port_protocol_action_add", in).result;
}

int bcm_vlan_port_protocol_action_get(int unit, int port, int frame, uint16_t ether, bcm_vlan_action_set_t *action)
{
    return get_action("bcm_vlan_port_protocol_action_get", {unit, port, frame, ether}, action);
}

int bcm_vlan_port_protocol_action_delete(int unit, int port, int frame, uint16_t ether)
{
    return put("bcm_vlan_port_protocol_action_delete", unit, port, frame, ether);
}

int bcm_vlan_control_set(int unit, bcm_vlan_control_t type, int value)
{
    return put("bcm_vlan_control_set", unit, static_cast<int>(type), value);
}

int bcm_vlan_control_get(int unit, bcm_vlan_control_t type, int *value)
{
    return get("bcm_vlan_control_get", value, unit, static_cast<int>(type));
}

int bcm_vlan_control_port_set(int unit, int port, bcm_vlan_control_port_t type, int value)
{
    return put("bcm_vlan_control_port_set", unit, port, static_cast<int>(type), value);
}

int bcm_vlan_control_port_get(int unit, int port, bcm_vlan_control_port_t type, int *value)
{
    return get("bcm_vlan_control_port_get", value, unit, port, static_cast<int>(type));
}

int bcm_vlan_translate_action_get(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer, uint16_t inner,
                                  bcm_vlan_action_set_t *action)
{
    return get_action("bcm_vlan_translate_action_get", {unit, gport, key, outer, inner}, action);
}

int bcm_vlan_translate_egress_action_get(int unit, int port_class, uint16_t outer, uint16_t inner,
                                         bcm_vlan_action_set_t *action)
{
    return get_action("bcm_vlan_translate_egress_action_get", {unit, port_class, outer, inner}, action);
}

int bcm_vlan_translate_action_add(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer, uint16_t inner,
                                  bcm_vlan_action_set_t *action)
{
    std::vector<int64_t> in{unit, gport, key, outer, inner};
    append(in, *action);
    return ask("bcm_vlan_translate_action_add", in).result;
}

int bcm_vlan_translate_action_delete(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer, uint16_t inner)
{
    return put("bcm_vlan_translate_action_delete", unit, gport, static_cast<int>(key), outer, inner);
}

int bcm_vlan_translate_action_traverse(int unit, bcm_vlan_translate_action_traverse_cb visit, void *user_data)
{
    constexpr size_t kWords = 4 + kActionWords;
    const Answer answer = ask("bcm_vlan_translate_action_traverse", {unit});
    int result = answer.result;
    for (size_t at = 0; result >= 0 && at + kWords <= answer.words.size(); at += kWords) {
        bcm_vlan_action_set_t action{};
        store_action(&answer.words[at + 4], &action);
        result =
            visit(unit, static_cast<int>(answer.words[at]), static_cast<bcm_vlan_translate_key_t>(answer.words[at + 1]),
                  static_cast<uint16_t>(answer.words[at + 2]), static_cast<uint16_t>(answer.words[at + 3]), &action,
                  user_data);
    }
    return result;
}

int bcm_vlan_translate_egress_action_add(int unit, int port_class, uint16_t outer, uint16_t inner,
                                         bcm_vlan_action_set_t *action)
{
    std::vector<int64_t> in{unit, port_class, outer, inner};
    append(in, *action);
    return ask("bcm_vlan_translate_egress_action_add", in).result;
}

int bcm_vlan_translate_egress_action_delete(int unit, int port_class, uint16_t outer, uint16_t inner)
{
    return put("bcm_vlan_translate_egress_action_delete", unit, port_class, outer, inner);
}

int bcm_vlan_translate_egress_action_traverse(int unit, bcm_vlan_translate_egress_action_traverse_cb visit,
                                              void *user_data)
{
    constexpr size_t kWords = 3 + kActionWords;
    const Answer answer = ask("bcm_vlan_translate_egress_action_traverse", {unit});
    int result = answer.result;
    for (size_t at = 0; result >= 0 && at + kWords <= answer.words.size(); at += kWords) {
        bcm_vlan_action_set_t action{};
        store_action(&answer.words[at + 3], &action);
        result = visit(unit, static_cast<int>(answer.words[at]), static_cast<uint16_t>(answer.words[at + 1]),
                       static_cast<uint16_t>(answer.words[at + 2]), &action, user_data);
    }
    return result;
}

// --- addresses ----------------------------------------------------------------------------------------------------

void bcm_l2_addr_t_init(bcm_l2_addr_t *address, const uint8_t mac[6], uint16_t vid)
{
    store_address(number_of(mac), vid, address);
}

int bcm_l2_addr_add(int unit, bcm_l2_addr_t *address)
{
    uint16_t vid = 0;
    int port = 0;
    memcpy(&vid, bytes_of(address) + sizes().mac + 6, sizeof vid);
    memcpy(&port, bytes_of(address) + sizes().mac + 8, sizeof port);
    return put("bcm_l2_addr_add", unit, number_of(bytes_of(address) + sizes().mac), vid, port, address->flags);
}

int bcm_l2_addr_get(int unit, uint8_t mac[6], uint16_t vid, bcm_l2_addr_t *address)
{
    const Answer answer = ask("bcm_l2_addr_get", {unit, number_of(mac), vid});
    if (answer.result == 0) {
        store_address(number_of(mac), vid, address);
        store_port(static_cast<int>(answer.word(0)), address);
        address->flags = static_cast<uint32_t>(answer.word(1));
    }
    return answer.result;
}

int bcm_l2_addr_delete(int unit, uint8_t mac[6], uint16_t vid)
{
    return put("bcm_l2_addr_delete", unit, number_of(mac), vid);
}

int bcm_l2_addr_delete_by_port(int unit, int module, int port, uint32_t flags)
{
    return put("bcm_l2_addr_delete_by_port", unit, module, port, flags);
}

int bcm_l2_traverse(int unit, bcm_l2_traverse_cb visit, void *user_data)
{
    const Answer answer = ask("bcm_l2_traverse", {unit});
    int result = answer.result;
    for (size_t at = 0; result >= 0 && at + 4 <= answer.words.size(); at += 4) {
        bcm_l2_addr_t address{};
        store_address(answer.words[at], static_cast<uint16_t>(answer.words[at + 1]), &address);
        store_port(static_cast<int>(answer.words[at + 2]), &address);
        address.flags = static_cast<uint32_t>(answer.words[at + 3]);
        result = visit(unit, &address, user_data);
    }
    return result;
}
