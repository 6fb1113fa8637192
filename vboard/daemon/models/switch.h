// The Broadcom switch behind its SDK: ports, PHYs, queues, counters, VLANs, translations and addresses.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "daemon/models/phy.h"

namespace vboard {

using SwitchWords = std::vector<int64_t>;

class Switch : public Model {
public:
    explicit Switch(Board &board);

    // One call of the client library. The first word of the answer is the SDK's result.
    SwitchWords call(const std::string &name, const SwitchWords &in);

    // The cable of a port.
    void plug(uint32_t number, bool partner);

    // show <port>
    // calls                            the calls since the last time this was asked, one a line
    // fail <call> <code> [times [after]]  the call fails so often (0: always), after so many that do not
    // release current|wide|old         sizes and layouts of the SDK's records
    // traffic <port> rx|tx <packets> <bytes>
    // drop <port> <queue> <packets>
    // learn <port> <mac as a number> <vlan>
    // phy <mdio> <command of a PHY>; phy <mdio> hold on|off
    std::string control(const Words &words) override;

private:
    struct Translation {
        std::array<int64_t, 20> action; // the first 160 bytes of the SDK's record
    };
    struct Port {
        int64_t autoneg = 1;
        int64_t duplex = 1;
        int64_t speed = 1000;
        int64_t enabled = 1;
        int64_t loopback = 0;
        int64_t mdix = 0;
        int64_t map_mode = 0;
        int64_t untagged_priority = 0;
        int64_t half_ability = 0;
        int64_t full_ability = 0x40;
        int64_t pause_ability = 0;
        std::array<int64_t, 2> egress_rate{};
        std::array<int64_t, 2> ingress_rate{};
        std::array<int64_t, 64> dscp_new{};
        std::array<int64_t, 64> dscp_priority{};
        std::array<int64_t, 8> queue_of_priority{};
        std::array<int64_t, 8> weights{};
        std::array<uint32_t, 8> drops{};
        int64_t schedule = 0;
        std::map<int64_t, uint64_t> counters; // by the SDK's number
        std::optional<std::array<int64_t, 20>> default_action;
        bool partner = true;
    };
    struct Address {
        int64_t port;
        int64_t flags;
    };
    struct Failure {
        int code;
        uint64_t left; // calls that fail; UINT64_MAX: all
        uint64_t skip; // calls before
    };

    struct Scalar; // a property of a port with a get and a set call
    static const Scalar kScalars[];
    struct Pair;
    static const Pair kPairs[];
    struct Handler;
    static const Handler kHandlers[];

    Port *port_of(int64_t number);
    Phy *phy_of(int64_t port);
    bool has_link(uint32_t number);
    void settle(uint32_t number); // tells the link services what became of a port's link
    void settle_ports_of(const Phy *phy);

    bool is_failing(const std::string &name, int *code);
    bool call_scalar(const std::string &name, const SwitchWords &in, SwitchWords *out);
    SwitchWords phy_get(const SwitchWords &in);
    SwitchWords phy_modify(const SwitchWords &in);
    SwitchWords phy_set(const SwitchWords &in);
    SwitchWords enable_set(const SwitchWords &in);
    SwitchWords link_status_get(const SwitchWords &in);
    SwitchWords ability_get(const SwitchWords &in);
    SwitchWords ability_set(const SwitchWords &in);
    SwitchWords master_get(const SwitchWords &in);
    SwitchWords master_set(const SwitchWords &in);
    SwitchWords gport_get(const SwitchWords &in);
    SwitchWords dscp_set(const SwitchWords &in);
    SwitchWords dscp_get(const SwitchWords &in);
    SwitchWords drops_get(const SwitchWords &in);
    SwitchWords drops_set(const SwitchWords &in);
    SwitchWords sched_set(const SwitchWords &in);
    SwitchWords sched_get(const SwitchWords &in);
    SwitchWords mapping_set(const SwitchWords &in);
    SwitchWords mapping_get(const SwitchWords &in);
    SwitchWords stats_get(const SwitchWords &in);
    SwitchWords vlan_create(const SwitchWords &in);
    SwitchWords vlan_destroy(const SwitchWords &in);
    SwitchWords vlan_port_add(const SwitchWords &in);
    SwitchWords vlan_port_remove(const SwitchWords &in);
    SwitchWords vlan_port_get(const SwitchWords &in);
    SwitchWords default_action_set(const SwitchWords &in);
    SwitchWords default_action_get(const SwitchWords &in);
    SwitchWords default_action_delete(const SwitchWords &in);
    SwitchWords translation_add(const SwitchWords &in);
    SwitchWords translation_delete(const SwitchWords &in);
    SwitchWords translation_list(const SwitchWords &in);
    SwitchWords egress_add(const SwitchWords &in);
    SwitchWords egress_delete(const SwitchWords &in);
    SwitchWords egress_list(const SwitchWords &in);
    SwitchWords address_add(const SwitchWords &in);
    SwitchWords address_get(const SwitchWords &in);
    SwitchWords address_delete(const SwitchWords &in);
    SwitchWords address_delete_by_port(const SwitchWords &in);
    SwitchWords address_list(const SwitchWords &in);

    void count_traffic(const Words &words);
    std::string show(uint32_t number);

    using Key = std::array<int64_t, 4>;
    std::map<uint32_t, Port> ports_;
    std::array<Phy, 2> phys_;                                  // at MDIO addresses 0 and 1
    std::map<int64_t, std::array<int64_t, 16>> vlans_;         // members, then untagged members
    std::map<Key, Translation> translations_;                  // port, kind of key, outer, inner
    std::map<Key, Translation> egress_;                        // port class, 0, outer, inner
    std::map<std::pair<int64_t, int64_t>, Address> addresses_; // address, VLAN
    std::map<std::string, Failure> failures_;
    std::string calls_;
    int64_t release_ = 0;
};

} // namespace vboard
