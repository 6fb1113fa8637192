// The Broadcom switch behind its SDK: ports, PHYs, queues, counters, VLANs, translations, addresses, field rules, and
// the frames that it forwards.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "daemon/models/egress_queues.h"
#include "daemon/models/ethernet_frame.h"
#include "daemon/models/field_rules.h"
#include "daemon/models/phy.h"

namespace vboard {

class Switch : public Model {
public:
    explicit Switch(Board &board);

    // One call of the client library. The first word of the answer is the SDK's result.
    SwitchWords call(const std::string &name, const SwitchWords &in);

    // The cable of a port.
    void plug(uint32_t number, bool partner);
    bool has_link(uint32_t number) const;

    // The port whose received clock the switch hands out, by its channel.
    void select_clock(uint32_t channel);

    static ControlTable commands();

private:
    struct Translation {
        std::array<int64_t, 20> action; // the first 160 bytes of the SDK's record
    };
    struct Bucket { // what a rate still lets pass
        // Adds the bits of the time since the last call. Bits beyond the burst are kept only while frames wait.
        void fill(const std::array<int64_t, 2> &rate, int64_t now, bool frames_wait);
        bool takes(uint32_t octets);
        std::array<int64_t, 2> kept_rate{};
        double bits = 0;
        int64_t filled_at = 0;
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
        std::array<uint32_t, 8> drops{};
        EgressQueues queues;
        std::map<int64_t, uint64_t> counters; // by the SDK's number
        std::optional<std::array<int64_t, 20>> default_action;
        std::map<int64_t, int64_t> vlan_control; // by the SDK's number
        Bucket receiving;
        Bucket sending;
        bool partner = true;

        bool is_enabled(int64_t control) const
        {
            const auto found = vlan_control.find(control);
            return found != vlan_control.end() && found->second != 0;
        }
    };
    struct Passage { // a frame on its way through the switch
        EthernetFrame frame;
        uint32_t port; // where it came in
        int64_t vlan;
        int64_t priority;
        int64_t queue = 0;
    };
    struct Copy { // a frame that left
        uint32_t port;
        QueuedFrame sent;
    };
    struct Vlan {
        PortSet members;
        PortSet untagged;
    };
    using Place = std::pair<int64_t, int64_t>; // an address in a VLAN
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
    const Phy *phy_of(int64_t port) const;
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

    SwitchWords vlan_control_set(const SwitchWords &in);
    SwitchWords vlan_control_get(const SwitchWords &in);
    SwitchWords vlan_control_port_set(const SwitchWords &in);
    SwitchWords vlan_control_port_get(const SwitchWords &in);
    SwitchWords translation_get(const SwitchWords &in);
    SwitchWords egress_get(const SwitchWords &in);
    SwitchWords protocol_add(const SwitchWords &in);
    SwitchWords protocol_get(const SwitchWords &in);
    SwitchWords protocol_delete(const SwitchWords &in);
    PortSet all_ports() const;

    void receive(uint32_t number, const EthernetFrame &frame);
    void assign_vlan(const Port &port, Passage *passage);
    void assign_priority(const Port &port, const FieldVerdict &verdict, Passage *passage);
    std::map<Place, Address>::iterator find_address(uint64_t address, int64_t vlan);
    void learn(const Passage &passage);
    PortSet destinations(const Passage &passage);
    void send(uint32_t number, const Passage &passage);
    void serve(uint32_t number, Port *port);
    void serve_ports();
    void leave(uint32_t number, Port *port, QueuedFrame frame);
    static void count(Port *port, const EthernetFrame &frame, bool received);
    void send_frame(const Given &given);
    std::string sent();

    void count_traffic(const Given &given);
    void count_drops(const Given &given);
    void fail(const Given &given);
    void set_release(const Given &given);
    Phy &phy_in(const Given &given);
    static ControlTable phy_commands();
    std::string show(uint32_t number);
    std::string state_text();
    std::string changes();
    void keep();
    void restore();

    using Key = std::array<int64_t, 4>;
    std::map<uint32_t, Port> ports_;
    std::array<Phy, 2> phys_; // at MDIO addresses 0 and 1
    std::map<int64_t, Vlan> vlans_;
    std::map<Key, Translation> translations_; // port, kind of key, outer, inner
    std::map<Key, Translation> egress_;       // port class, 0, outer, inner
    std::map<Place, Translation> protocols_;  // port, ethertype
    std::map<Place, Address> addresses_;
    FieldRules rules_;
    std::vector<Copy> copies_;
    bool shares_addresses_ = false;
    bool mask_keeps_ = false;
    uint32_t clock_port_ = 0;
    std::map<std::string, Failure> failures_;
    std::string calls_;
    int64_t release_ = 0;
    int64_t service_release_ = 0;

    struct Kept;
    std::shared_ptr<Kept> kept_;
};

} // namespace vboard
