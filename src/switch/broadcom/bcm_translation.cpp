// Translation between the C-VLANs of a port and the S-VLANs of the switch: an ingress entry replaces the C-VLAN's tag,
// an egress entry of the port's class puts it back.
#include <ddal/bcm.h>
#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include <cerrno>
#include <optional>

#include "switch/broadcom/bounded_list.h"
#include "switch/broadcom/port.h"
#include "switch/broadcom/vlan.h"

using namespace ddal::ethswitch;

namespace {

static_assert(sizeof(ddal_eth_switch_translation) == 4);

constexpr uint32_t kAbsent = 0;
constexpr uint32_t kEnabled = 1;
constexpr uint32_t kPresent = 2;

bool prepare_replacement(bcm_vlan_action_set_t *action, uint32_t vlan)
{
    *action = {};
    if (!sdk_done(bcm_vlan_action_set_t_init, action))
        return false;
    action->new_outer_vlan = static_cast<uint16_t>(vlan);
    action->priority = kKeepPriority;
    action->ot_outer = bcmVlanActionReplace;
    action->dt_outer = bcmVlanActionReplace;
    return true;
}

// The entries of a translation that exist.
struct Entries {
    int gport = 0;
    std::optional<uint32_t> svlan; // replaces the C-VLAN
    std::optional<uint32_t> cvlan; // replaces the S-VLAN
};

// Takes the new VLAN from an action. Takes nothing if the entry does not exist.
int take_vlan(const CallSite &site, int rv, const bcm_vlan_action_set_t &action, std::optional<uint32_t> *vlan)
{
    if (rv == BCM_E_NONE)
        *vlan = action.new_outer_vlan;
    else if (rv != BCM_E_NOT_FOUND)
        log_unit_failure(site, rv);
    return rv == BCM_E_NOT_FOUND ? 0 : rv;
}

int read_entries(uint32_t port, uint32_t cvlan, uint32_t svlan, Entries *entries)
{
    int rv = sdk_on_port(port, bcm_port_gport_get, &entries->gport);
    if (rv != 0)
        return rv;
    bcm_vlan_action_set_t action{};
    rv = sdk_result(bcm_vlan_translate_action_get, kUnit, entries->gport, bcmVlanTranslateKeyPortOuter,
                    static_cast<uint16_t>(cvlan), uint16_t{0}, &action);
    rv = take_vlan({__func__, __LINE__, "bcm_vlan_translate_action_get"}, rv, action, &entries->svlan);
    if (rv != 0)
        return rv;
    rv = sdk_result(bcm_vlan_translate_egress_action_get, kUnit, static_cast<int>(port), static_cast<uint16_t>(svlan),
                    uint16_t{0}, &action);
    return take_vlan({__func__, __LINE__, "bcm_vlan_translate_egress_action_get"}, rv, action, &entries->cvlan);
}

int delete_ingress(int gport, uint32_t cvlan)
{
    return sdk_on_unit(bcm_vlan_translate_action_delete, gport, bcmVlanTranslateKeyPortOuter,
                       static_cast<uint16_t>(cvlan), uint16_t{0});
}

int delete_egress(uint32_t port, uint32_t svlan)
{
    return sdk_on_unit(bcm_vlan_translate_egress_action_delete, static_cast<int>(port), static_cast<uint16_t>(svlan),
                       uint16_t{0});
}

// Adds both entries or none. Where a process ended between the two, adds the missing one.
int add_entries(uint32_t port, uint32_t cvlan, uint32_t svlan, const Entries &before)
{
    bcm_vlan_action_set_t ingress;
    bcm_vlan_action_set_t egress;
    if (!prepare_replacement(&ingress, svlan) || !prepare_replacement(&egress, cvlan))
        return BCM_E_UNAVAIL;
    int rv = sdk_on_unit(bcm_vlan_translate_action_add, before.gport, bcmVlanTranslateKeyPortOuter,
                         static_cast<uint16_t>(cvlan), uint16_t{0}, &ingress);
    if (rv != BCM_E_NONE)
        return rv;
    rv = sdk_on_unit(bcm_vlan_translate_egress_action_add, static_cast<int>(port), static_cast<uint16_t>(svlan),
                     uint16_t{0}, &egress);
    if (rv != BCM_E_NONE && !before.svlan)
        delete_ingress(before.gport, cvlan);
    return rv;
}

int put_control(uint32_t port, bcm_vlan_control_port_t control, int value)
{
    return sdk_on_port(port, bcm_vlan_control_port_set, control, value);
}

// Switches both directions or none.
int switch_directions(uint32_t port, int on)
{
    int rv = put_control(port, bcmVlanTranslateIngressEnable, on);
    if (rv != 0)
        return rv;
    rv = put_control(port, bcmVlanTranslateEgressEnable, on);
    if (rv != 0)
        put_control(port, bcmVlanTranslateIngressEnable, !on);
    return rv;
}

// Calls visit(C-VLAN, S-VLAN) for each ingress entry of the port. The SDK may name the port as a port or as a gport.
template <typename Visit>
int for_each_translation(uint32_t port, Visit visit)
{
    struct Walk {
        int port;
        int gport;
        Visit visit;
    } walk{static_cast<int>(port), 0, visit};
    const bcm_vlan_translate_action_traverse_cb step = [](int, int gport, bcm_vlan_translate_key_t key, uint16_t outer,
                                                          uint16_t, bcm_vlan_action_set_t *action, void *data) {
        auto *const that = static_cast<Walk *>(data);
        if (key == bcmVlanTranslateKeyPortOuter && (gport == that->gport || gport == that->port))
            that->visit(outer, action->new_outer_vlan);
        return 0;
    };
    const int rv = sdk_on_port(port, bcm_port_gport_get, &walk.gport);
    return rv != BCM_E_NONE ? rv : sdk_on_unit(bcm_vlan_translate_action_traverse, step, &walk);
}

struct EgressWalk {
    int port_class;
    BoundedList<ddal_eth_switch_translation> list;
};

int visit_egress(int, int port_class, uint16_t outer, uint16_t, bcm_vlan_action_set_t *action, void *data)
{
    auto *const walk = static_cast<EgressWalk *>(data);
    if (port_class == walk->port_class)
        walk->list.add({action->new_outer_vlan, outer});
    return 0;
}

} // namespace

DDAL_WEAK int ddal_bcm_vlan_translation_add(uint32_t port, uint32_t cvlan, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, cvlan) != 0 || check_vlan(__func__, svlan) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Entries before;
    if (read_entries(port, cvlan, svlan, &before) != 0)
        return log_error(DDAL_ERR_FAILURE, "Adding translation failed on port %u\n", port);
    if ((before.svlan && *before.svlan != svlan) || (before.cvlan && *before.cvlan != cvlan))
        return log_error(-EEXIST, "C-VLAN %u or S-VLAN %u is in another translation of port %u\n", cvlan, svlan, port);
    if (add_entries(port, cvlan, svlan, before) != 0)
        return log_error(DDAL_ERR_FAILURE, "Adding translation failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_vlan_translation_remove(uint32_t port, uint32_t cvlan, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, cvlan) != 0 || check_vlan(__func__, svlan) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    Entries present;
    if (read_entries(port, cvlan, svlan, &present) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing translation failed on port %u\n", port);
    const bool ingress = present.svlan == svlan;
    const bool egress = present.cvlan == cvlan;
    if (!ingress && !egress)
        return log_error(DDAL_ERR_FAILURE, "port %u has no translation of C-VLAN %u to S-VLAN %u\n", port, cvlan,
                         svlan);
    if ((ingress && delete_ingress(present.gport, cvlan) != 0) || (egress && delete_egress(port, svlan) != 0))
        return log_error(DDAL_ERR_FAILURE, "Removing translation failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_vlan_translation_get(uint32_t port, struct ddal_eth_switch_translation *list, uint32_t *size)
{
    if (check_port(__func__, port) != 0 || check_list(__func__, list, size) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    BoundedList<ddal_eth_switch_translation> entries{list, *size};
    if (for_each_translation(port, [&](uint16_t cvlan, uint16_t svlan) { entries.add({cvlan, svlan}); }) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting translations failed on port %u\n", port);
    return entries.settle(size);
}

DDAL_WEAK int ddal_bcm_vlan_translation_enable(uint32_t port, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (put_control(port, bcmVlanPortTranslateKeyFirst, bcmVlanTranslateKeyPortOuter) != 0 ||
        switch_directions(port, 1) != 0)
        return log_error(DDAL_ERR_FAILURE, "Enabling translation failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_vlan_translation_disable(uint32_t port, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (switch_directions(port, 0) != 0)
        return log_error(DDAL_ERR_FAILURE, "Disabling translation failed on port %u\n", port);
    return 0;
}

DDAL_WEAK int ddal_bcm_vlan_translation_status_on_svlan(uint32_t port, uint32_t svlan, uint32_t *status)
{
    if (open_port_for(__func__, port, status, "status cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    bool found = false;
    int ingress = 0;
    int egress = 0;
    if (for_each_translation(port, [&](uint16_t, uint16_t target) { found |= target == svlan; }) != 0 ||
        sdk_on_port(port, bcm_vlan_control_port_get, bcmVlanTranslateIngressEnable, &ingress) != 0 ||
        sdk_on_port(port, bcm_vlan_control_port_get, bcmVlanTranslateEgressEnable, &egress) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting translation status failed on port %u\n", port);
    *status = !found ? kAbsent : ingress && egress ? kEnabled : kPresent;
    return 0;
}

int ddal_bcm_cvlans_get(uint32_t port, uint16_t *cvlans, uint32_t size)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, cvlans || size == 0) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    BoundedList<uint16_t> list{cvlans, size};
    if (for_each_translation(port, [&](uint16_t cvlan, uint16_t) { list.add(cvlan); }) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting C-VLANs failed on port %u\n", port);
    return static_cast<int>(list.count());
}

int ddal_bcm_egress_translations_get(uint32_t port, struct ddal_eth_switch_translation *list, uint32_t *size)
{
    if (check_port(__func__, port) != 0 || check_list(__func__, list, size) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    EgressWalk walk{static_cast<int>(port), {list, *size}};
    if (sdk_on_unit(bcm_vlan_translate_egress_action_traverse, visit_egress, &walk) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting egress translations failed on port %u\n", port);
    return walk.list.settle(size);
}
