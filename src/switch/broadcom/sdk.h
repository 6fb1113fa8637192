// The used part of the switch SDK's client library: unit 0, 256 ports, all releases since late 2017 and, where records
// differ, earlier ones (except field rules, see field_group.h). Records of release-dependent size are declared larger
// than in any release, with only the common fields named. The references are weak: the library contains no SDK, and
// needs none unless the product's build names one.
#pragma once

#include <cstddef>
#include <cstdint>

#ifdef DDAL_SWITCH_SDK_LINKED
#define DDAL_SDK_CALL
#else
#define DDAL_SDK_CALL __attribute__((weak))
#endif

constexpr int BCM_E_NONE = 0;
constexpr int BCM_E_NOT_FOUND = -7;
constexpr int BCM_E_EXISTS = -8;
constexpr int BCM_E_RESOURCE = -14;
constexpr int BCM_E_UNAVAIL = -16;

// Register access
constexpr uint32_t BCM_PORT_PHY_NOMAP = 0x2;    // the port argument is the MDIO address
constexpr uint32_t BCM_PORT_PHY_CLAUSE45 = 0x4; // the register is (device << 16 | register)

enum : int { BCM_PORT_LINK_STATUS_DOWN = 0, BCM_PORT_LINK_STATUS_UP = 1 };
enum : int { BCM_PORT_LOOPBACK_NONE = 0, BCM_PORT_LOOPBACK_PHY = 2 };
enum : int { BCM_PORT_MS_SLAVE = 0, BCM_PORT_MS_MASTER = 1, BCM_PORT_MS_AUTO = 2 };
enum : int { BCM_PORT_DSCP_MAP_NONE = 0, BCM_PORT_DSCP_MAP_ALL = 2 };
enum : int {
    BCM_COSQ_ROUND_ROBIN = 2,
    BCM_COSQ_WEIGHTED_ROUND_ROBIN = 3,
    BCM_COSQ_WEIGHTED_FAIR_QUEUING = 4,
    BCM_COSQ_DEFICIT_ROUND_ROBIN = 5,
};

enum bcm_port_mdix_t : int {
    BCM_PORT_MDIX_AUTO = 0,
    BCM_PORT_MDIX_FORCE_AUTO = 1,
    BCM_PORT_MDIX_NORMAL = 2, // forced straight
    BCM_PORT_MDIX_XOVER = 3,  // forced crossed
};

enum bcm_cosq_stat_t : int { bcmCosqStatHOLDropPackets = 55 };
enum bcm_vlan_action_t : int { bcmVlanActionNone = 0, bcmVlanActionAdd = 1, bcmVlanActionReplace = 2 };
enum bcm_vlan_translate_key_t : int { bcmVlanTranslateKeyPortOuter = 8 };
enum bcm_vlan_control_t : int { bcmVlanShared = 3 };
enum bcm_vlan_control_port_t : int {
    bcmVlanTranslateIngressEnable = 2,
    bcmVlanTranslateEgressEnable = 5,
    bcmVlanPortTranslateKeyFirst = 14,
    bcmVlanPortTranslateKeySecond = 15,
};
enum : int { BCM_PORT_FRAMETYPE_ETHER2 = 1 };

enum : int {
    bcmFieldQualifyDstMac = 7,
    bcmFieldQualifyInPort = 12,
    bcmFieldQualifyInPorts = 13,
    bcmFieldQualifyEtherType = 29,
    bcmFieldQualifyStageIngress = 68,
    bcmFieldQualifyVlanFormat = 90,
};
enum bcm_field_action_t : int {
    bcmFieldActionCosQNew = 0,
    bcmFieldActionPrioPktCancel = 12,
    bcmFieldActionRedirect = 29,
    bcmFieldActionEgressMask = 37,
    bcmFieldActionDrop = 39,
};
constexpr uint8_t BCM_FIELD_VLAN_FORMAT_OUTER_TAGGED = 1;

enum bcm_stat_val_t : int {
    snmpIfInDiscards = 3,
    snmpIfInErrors = 4,
    snmpIfOutDiscards = 9,
    snmpIfOutErrors = 10,
    snmpIfHCInOctets = 58,
    snmpIfHCInUcastPkts = 59,
    snmpIfHCInMulticastPkts = 60,
    snmpIfHCInBroadcastPkts = 61,
    snmpIfHCOutOctets = 62,
    snmpIfHCOutUcastPkts = 63,
    snmpIfHCOutMulticastPkts = 64,
    snmpIfHCOutBroadcastPkts = 65,
};

constexpr uint32_t BCM_L2_STATIC = 0x20;
constexpr uint32_t BCM_L2_MCAST = 0x100;

struct cpudb_key_t {
    uint8_t key[6];
};
static_assert(sizeof(cpudb_key_t) == 6);

struct bcm_pbmp_t { // port p is bit p % 32 of word p / 32
    uint32_t pbits[8];
};
static_assert(sizeof(bcm_pbmp_t) == 32);

struct bcm_port_ability_t { // 40 to 48 bytes; read, changed and written back
    uint32_t speed_half_duplex;
    uint32_t speed_full_duplex;
    uint32_t pause;
    uint32_t beyond[29];
};
static_assert(sizeof(bcm_port_ability_t) == 128);

struct bcm_vlan_action_set_t { // 164 to 232 bytes; only bcm_vlan_action_set_t_init has the size
    uint16_t new_outer_vlan;
    uint16_t new_inner_vlan;
    uint8_t new_inner_pkt_prio;
    uint8_t new_outer_cfi;
    uint8_t new_inner_cfi;
    uint8_t padding;
    int32_t ingress_if;
    int32_t priority;
    bcm_vlan_action_t dt_outer; // packets with two tags
    bcm_vlan_action_t dt_unused[7];
    bcm_vlan_action_t ot_outer; // packets with an outer tag only
    bcm_vlan_action_t ot_unused[6];
    bcm_vlan_action_t it_unused[7];
    bcm_vlan_action_t ut_outer; // packets without a tag
    bcm_vlan_action_t ut_unused[5];
    uint8_t beyond[384];
};
static_assert(offsetof(bcm_vlan_action_set_t, dt_outer) == 16);
static_assert(offsetof(bcm_vlan_action_set_t, ot_outer) == 48);
static_assert(offsetof(bcm_vlan_action_set_t, ut_outer) == 104);
static_assert(sizeof(bcm_vlan_action_set_t) == 512);

struct bcm_l2_addr_t { // 100 to 360 bytes; the release decides where the address is, see l2_address.h
    uint32_t flags;
    uint32_t flags2;
    uint8_t beyond[504];
};
static_assert(sizeof(bcm_l2_addr_t) == 512);

struct bcm_field_qset_t { // 192 to 256 bytes; bit q % 32 of word q / 32 is qualifier q
    uint32_t words[128];
};
static_assert(sizeof(bcm_field_qset_t) == 512);

// 896 to 1784 bytes. The size of the qset decides the layout behind it, see field_group.h.
struct bcm_field_group_config_t {
    uint32_t flags;
    uint32_t beyond[1023];
};
static_assert(sizeof(bcm_field_group_config_t) == 4096);

extern "C"
{

struct cpudb_s;
struct cpudb_entry_s;

typedef int (*bcm_vlan_translate_action_traverse_cb)(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer,
                                                     uint16_t inner, bcm_vlan_action_set_t *action, void *user_data);
typedef int (*bcm_vlan_translate_egress_action_traverse_cb)(int unit, int port_class, uint16_t outer, uint16_t inner,
                                                            bcm_vlan_action_set_t *action, void *user_data);
typedef int (*bcm_field_group_traverse_cb)(int unit, int group, void *user_data);
typedef int (*bcm_l2_traverse_cb)(int unit, bcm_l2_addr_t *info, void *user_data);

// clang-format off
extern DDAL_SDK_CALL char *_shr_errmsg[];

// Start-up
DDAL_SDK_CALL int sal_core_init(void);
DDAL_SDK_CALL int sal_appl_init(void);
DDAL_SDK_CALL int sal_config_set(char *name, char *value);
DDAL_SDK_CALL cpudb_s *cpudb_create(void);
DDAL_SDK_CALL cpudb_entry_s *cpudb_entry_create(cpudb_s *db, const cpudb_key_t key, int is_local);
DDAL_SDK_CALL int atptrans_socket_server_start(void);
DDAL_SDK_CALL int atptrans_socket_install(cpudb_key_t key, uint32_t address, uint32_t flags);
DDAL_SDK_CALL int atp_cos_vlan_set(int cos, int vlan);
DDAL_SDK_CALL int atp_start(uint32_t flags, uint32_t units, uint32_t rco_flags);
DDAL_SDK_CALL int atp_db_update(cpudb_s *db);
DDAL_SDK_CALL int bcm_rpc_start(void);
DDAL_SDK_CALL int bcm_rlink_start(void);
DDAL_SDK_CALL int bcm_attach(int unit, char *type, char *subtype, int remote_unit); // the unit, or a negative result

// Ports
DDAL_SDK_CALL int bcm_port_autoneg_set(int unit, int port, int autoneg);
DDAL_SDK_CALL int bcm_port_autoneg_get(int unit, int port, int *autoneg);
DDAL_SDK_CALL int bcm_port_duplex_set(int unit, int port, int duplex);
DDAL_SDK_CALL int bcm_port_duplex_get(int unit, int port, int *duplex);
DDAL_SDK_CALL int bcm_port_speed_set(int unit, int port, int speed);
DDAL_SDK_CALL int bcm_port_speed_get(int unit, int port, int *speed);
DDAL_SDK_CALL int bcm_port_enable_set(int unit, int port, int enable);
DDAL_SDK_CALL int bcm_port_link_status_get(int unit, int port, int *status);
DDAL_SDK_CALL int bcm_port_phy_get(int unit, int port, uint32_t flags, uint32_t reg, uint32_t *data);
DDAL_SDK_CALL int bcm_port_phy_set(int unit, int port, uint32_t flags, uint32_t reg, uint32_t data);
DDAL_SDK_CALL int bcm_port_phy_modify(int unit, int port, uint32_t flags, uint32_t reg, uint32_t data, uint32_t mask);
DDAL_SDK_CALL int bcm_port_ability_advert_get(int unit, int port, bcm_port_ability_t *ability);
DDAL_SDK_CALL int bcm_port_ability_advert_set(int unit, int port, bcm_port_ability_t *ability);
DDAL_SDK_CALL int bcm_port_mdix_get(int unit, int port, bcm_port_mdix_t *mode);
DDAL_SDK_CALL int bcm_port_mdix_set(int unit, int port, bcm_port_mdix_t mode);
DDAL_SDK_CALL int bcm_port_loopback_get(int unit, int port, int *loopback);
DDAL_SDK_CALL int bcm_port_loopback_set(int unit, int port, int loopback);
DDAL_SDK_CALL int bcm_port_master_get(int unit, int port, int *master);
DDAL_SDK_CALL int bcm_port_master_set(int unit, int port, int master);
DDAL_SDK_CALL int bcm_port_rate_egress_set(int unit, int port, uint32_t kbits_sec, uint32_t kbits_burst);
DDAL_SDK_CALL int bcm_port_rate_egress_get(int unit, int port, uint32_t *kbits_sec, uint32_t *kbits_burst);
DDAL_SDK_CALL int bcm_port_rate_ingress_set(int unit, int port, uint32_t kbits_sec, uint32_t kbits_burst);
DDAL_SDK_CALL int bcm_port_rate_ingress_get(int unit, int port, uint32_t *kbits_sec, uint32_t *kbits_burst);
DDAL_SDK_CALL int bcm_port_gport_get(int unit, int port, int *gport);
DDAL_SDK_CALL int bcm_port_dscp_map_mode_set(int unit, int port, int mode);
DDAL_SDK_CALL int bcm_port_dscp_map_mode_get(int unit, int port, int *mode);
DDAL_SDK_CALL int bcm_port_dscp_map_set(int unit, int port, int dscp, int new_dscp, int priority);
DDAL_SDK_CALL int bcm_port_dscp_map_get(int unit, int port, int dscp, int *new_dscp, int *priority);
DDAL_SDK_CALL int bcm_port_untagged_priority_set(int unit, int port, int priority);
DDAL_SDK_CALL int bcm_port_untagged_priority_get(int unit, int port, int *priority);
DDAL_SDK_CALL int bcm_stat_multi_get(int unit, int port, int n, bcm_stat_val_t *types, uint64_t *values);
DDAL_SDK_CALL int _shr_pbmp_bmeq(bcm_pbmp_t *a, bcm_pbmp_t *b); // 1 = equal

// Class of service; port bitmaps go by value
DDAL_SDK_CALL int bcm_cosq_stat_sync_get32(int unit, int gport, int queue, bcm_cosq_stat_t stat, uint32_t *value);
DDAL_SDK_CALL int bcm_cosq_stat_set32(int unit, int gport, int queue, bcm_cosq_stat_t stat, uint32_t value);
DDAL_SDK_CALL int bcm_cosq_port_sched_set(int unit, bcm_pbmp_t ports, int mode, const int weights[8], int delay);
DDAL_SDK_CALL int bcm_cosq_port_sched_get(int unit, bcm_pbmp_t ports, int *mode, int weights[8], int *delay);
DDAL_SDK_CALL int bcm_cosq_port_mapping_set(int unit, int port, int priority, int queue);
DDAL_SDK_CALL int bcm_cosq_port_mapping_get(int unit, int port, int priority, int *queue);

// VLAN
DDAL_SDK_CALL void bcm_vlan_action_set_t_init(bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_create(int unit, uint16_t vid);
DDAL_SDK_CALL int bcm_vlan_destroy(int unit, uint16_t vid);
DDAL_SDK_CALL int bcm_vlan_port_add(int unit, uint16_t vid, bcm_pbmp_t ports, bcm_pbmp_t untagged);
DDAL_SDK_CALL int bcm_vlan_port_remove(int unit, uint16_t vid, bcm_pbmp_t ports);
DDAL_SDK_CALL int bcm_vlan_port_get(int unit, uint16_t vid, bcm_pbmp_t *ports, bcm_pbmp_t *untagged);
DDAL_SDK_CALL int bcm_vlan_port_default_action_set(int unit, int port, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_port_default_action_get(int unit, int port, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_port_default_action_delete(int unit, int port);
DDAL_SDK_CALL int bcm_vlan_port_protocol_action_add(int unit, int port, int frame, uint16_t ether, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_port_protocol_action_get(int unit, int port, int frame, uint16_t ether, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_port_protocol_action_delete(int unit, int port, int frame, uint16_t ether);
DDAL_SDK_CALL int bcm_vlan_control_set(int unit, bcm_vlan_control_t type, int value);
DDAL_SDK_CALL int bcm_vlan_control_get(int unit, bcm_vlan_control_t type, int *value);
DDAL_SDK_CALL int bcm_vlan_control_port_set(int unit, int port, bcm_vlan_control_port_t type, int value);
DDAL_SDK_CALL int bcm_vlan_control_port_get(int unit, int port, bcm_vlan_control_port_t type, int *value);
DDAL_SDK_CALL int bcm_vlan_translate_action_get(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer, uint16_t inner, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_translate_egress_action_get(int unit, int port_class, uint16_t outer, uint16_t inner, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_translate_action_add(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer, uint16_t inner, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_translate_action_delete(int unit, int gport, bcm_vlan_translate_key_t key, uint16_t outer, uint16_t inner);
DDAL_SDK_CALL int bcm_vlan_translate_action_traverse(int unit, bcm_vlan_translate_action_traverse_cb call, void *user_data);
DDAL_SDK_CALL int bcm_vlan_translate_egress_action_add(int unit, int port_class, uint16_t outer, uint16_t inner, bcm_vlan_action_set_t *action);
DDAL_SDK_CALL int bcm_vlan_translate_egress_action_delete(int unit, int port_class, uint16_t outer, uint16_t inner);
DDAL_SDK_CALL int bcm_vlan_translate_egress_action_traverse(int unit, bcm_vlan_translate_egress_action_traverse_cb call, void *user_data);

// Field processor
DDAL_SDK_CALL void bcm_field_qset_t_init(bcm_field_qset_t *qset);
DDAL_SDK_CALL void bcm_field_group_config_t_init(bcm_field_group_config_t *config);
DDAL_SDK_CALL int bcm_field_group_config_create(int unit, bcm_field_group_config_t *config);
DDAL_SDK_CALL int bcm_field_group_destroy(int unit, int group);
DDAL_SDK_CALL int bcm_field_group_traverse(int unit, bcm_field_group_traverse_cb call, void *user_data);
DDAL_SDK_CALL int bcm_field_entry_create_id(int unit, int group, int entry);
DDAL_SDK_CALL int bcm_field_entry_destroy(int unit, int entry);
DDAL_SDK_CALL int bcm_field_entry_install(int unit, int entry);
DDAL_SDK_CALL int bcm_field_entry_remove(int unit, int entry);
DDAL_SDK_CALL int bcm_field_entry_prio_set(int unit, int entry, int priority);
DDAL_SDK_CALL int bcm_field_entry_multi_get(int unit, int group, int size, int *entries, int *count);
DDAL_SDK_CALL int bcm_field_qualify_clear(int unit, int entry);
DDAL_SDK_CALL int bcm_field_qualify_InPort(int unit, int entry, int data, int mask);
DDAL_SDK_CALL int bcm_field_qualify_InPort_get(int unit, int entry, int *data, int *mask);
DDAL_SDK_CALL int bcm_field_qualify_InPorts(int unit, int entry, bcm_pbmp_t data, bcm_pbmp_t mask);
DDAL_SDK_CALL int bcm_field_qualify_InPorts_get(int unit, int entry, bcm_pbmp_t *data, bcm_pbmp_t *mask);
DDAL_SDK_CALL int bcm_field_qualify_DstMac(int unit, int entry, uint8_t data[6], uint8_t mask[6]);
DDAL_SDK_CALL int bcm_field_qualify_DstMac_get(int unit, int entry, uint8_t (*data)[6], uint8_t (*mask)[6]);
DDAL_SDK_CALL int bcm_field_qualify_EtherType(int unit, int entry, uint16_t data, uint16_t mask);
DDAL_SDK_CALL int bcm_field_qualify_EtherType_get(int unit, int entry, uint16_t *data, uint16_t *mask);
DDAL_SDK_CALL int bcm_field_qualify_VlanFormat(int unit, int entry, uint8_t data, uint8_t mask);
DDAL_SDK_CALL int bcm_field_qualify_VlanFormat_get(int unit, int entry, uint8_t *data, uint8_t *mask);
DDAL_SDK_CALL int bcm_field_action_add(int unit, int entry, bcm_field_action_t action, uint32_t param0, uint32_t param1);
DDAL_SDK_CALL int bcm_field_action_get(int unit, int entry, bcm_field_action_t action, uint32_t *param0, uint32_t *param1);
DDAL_SDK_CALL int bcm_field_action_remove(int unit, int entry, bcm_field_action_t action);
DDAL_SDK_CALL int bcm_field_action_ports_add(int unit, int entry, bcm_field_action_t action, bcm_pbmp_t ports);
DDAL_SDK_CALL int bcm_field_action_ports_get(int unit, int entry, bcm_field_action_t action, bcm_pbmp_t *ports);

// Addresses
DDAL_SDK_CALL void bcm_l2_addr_t_init(bcm_l2_addr_t *address, const uint8_t mac[6], uint16_t vid);
DDAL_SDK_CALL int bcm_l2_addr_add(int unit, bcm_l2_addr_t *address);
DDAL_SDK_CALL int bcm_l2_addr_get(int unit, uint8_t mac[6], uint16_t vid, bcm_l2_addr_t *address);
DDAL_SDK_CALL int bcm_l2_addr_delete(int unit, uint8_t mac[6], uint16_t vid);
DDAL_SDK_CALL int bcm_l2_addr_delete_by_port(int unit, int module, int port, uint32_t flags);
DDAL_SDK_CALL int bcm_l2_traverse(int unit, bcm_l2_traverse_cb call, void *user_data);
// clang-format on

} // extern "C"
