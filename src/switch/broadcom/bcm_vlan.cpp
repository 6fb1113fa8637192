// VLANs of the switch: S-VLANs and their ports, a port's default S-VLAN, ethertypes and learning.
#include <ddal/bcm.h>
#include <ddal/bcm_open.h>

#include <cerrno>

#include "switch/broadcom/bounded_list.h"
#include "switch/broadcom/port.h"
#include "switch/broadcom/port_bitmap.h"
#include "switch/broadcom/vlan.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kHighestSvlan = 20; // the switch has no S-VLAN 0

constexpr uint32_t kLowestEthertype = 0x0600; // smaller numbers are lengths
constexpr uint32_t kHighestEthertype = 0xFFFF;
constexpr uint32_t kHighestLearningMode = 1;

// Returns 0, or DDAL_ERR_FAILURE logged under the caller's name.
int check_ethertype(const char *caller, uint32_t ethertype)
{
    if (ethertype >= kLowestEthertype && ethertype <= kHighestEthertype)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "invalid ethertype 0x%x\n", ethertype);
}

// Assigns the S-VLAN to frames without a tag.
bool prepare_tagging(bcm_vlan_action_set_t *action, uint32_t svlan)
{
    *action = {};
    if (!sdk_done(bcm_vlan_action_set_t_init, action))
        return false;
    action->new_outer_vlan = static_cast<uint16_t>(svlan);
    action->priority = kKeepPriority;
    action->ut_outer = bcmVlanActionAdd;
    return true;
}

} // namespace

int ddal::ethswitch::check_vlan(const char *caller, uint32_t vlan)
{
    if (vlan <= kHighestVlan)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "invalid VLAN %u\n", vlan);
}

DDAL_WEAK int ddal_bcm_svlan_create(uint32_t svlan)
{
    if (check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_unit(bcm_vlan_create, static_cast<uint16_t>(svlan)) != 0)
        return log_error(DDAL_ERR_FAILURE, "Creating S-VLAN %u failed\n", svlan);
    return 0;
}

DDAL_WEAK int ddal_bcm_svlan_remove(uint32_t svlan)
{
    if (check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_unit(bcm_vlan_destroy, static_cast<uint16_t>(svlan)) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing S-VLAN %u failed\n", svlan);
    return 0;
}

DDAL_WEAK int ddal_bcm_svlan_port_add(uint32_t port, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_unit(bcm_vlan_port_add, static_cast<uint16_t>(svlan), bitmap_of(port), bcm_pbmp_t{}) != 0)
        return log_error(DDAL_ERR_FAILURE, "Adding port %u to S-VLAN %u failed\n", port, svlan);
    return 0;
}

DDAL_WEAK int ddal_bcm_svlan_port_remove(uint32_t port, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_unit(bcm_vlan_port_remove, static_cast<uint16_t>(svlan), bitmap_of(port)) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing port %u from S-VLAN %u failed\n", port, svlan);
    return 0;
}

int ddal_bcm_svlans_get(uint32_t port, uint16_t *svlans, uint32_t size)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, svlans || size == 0) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    BoundedList<uint16_t> list{svlans, size};
    for (uint16_t svlan = 1; svlan <= kHighestSvlan; svlan++) {
        bcm_pbmp_t ports{};
        bcm_pbmp_t untagged{};
        const int rv = sdk_result(bcm_vlan_port_get, kUnit, svlan, &ports, &untagged);
        if (rv == BCM_E_NOT_FOUND)
            continue;
        if (rv != BCM_E_NONE)
            return log_error(DDAL_ERR_FAILURE, "Getting ports of S-VLAN %u failed: %s\n", static_cast<unsigned>(svlan),
                             sdk_text(rv));
        if (holds_port(ports, port))
            list.add(svlan);
    }
    return static_cast<int>(list.count());
}

int ddal_bcm_default_svlan_set(uint32_t port, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    bcm_vlan_action_set_t action;
    if (!prepare_tagging(&action, svlan) || sdk_on_port(port, bcm_vlan_port_default_action_set, &action) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting default S-VLAN failed on port %u\n", port);
    return 0;
}

int ddal_bcm_default_svlan_get(uint32_t port, uint16_t *svlan)
{
    if (open_port_for(__func__, port, svlan, "data cannot be null") != 0)
        return DDAL_ERR_FAILURE;

    bcm_vlan_action_set_t action{};
    if (!sdk_done(bcm_vlan_action_set_t_init, &action) ||
        sdk_on_port(port, bcm_vlan_port_default_action_get, &action) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting default S-VLAN failed on port %u\n", port);
    *svlan = action.new_outer_vlan;
    return 0;
}

int ddal_bcm_default_svlan_remove(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_vlan_port_default_action_delete) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing default S-VLAN failed on port %u\n", port);
    return 0;
}

int ddal_bcm_ethertype_svlan_get(uint32_t port, uint32_t ethertype, uint16_t *svlan)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, svlan) != 0 ||
        check_ethertype(__func__, ethertype) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    bcm_vlan_action_set_t action{};
    if (sdk_on_port(port, bcm_vlan_port_protocol_action_get, BCM_PORT_FRAMETYPE_ETHER2,
                    static_cast<uint16_t>(ethertype), &action) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting the S-VLAN of an ethertype failed on port %u\n", port);
    *svlan = action.new_outer_vlan;
    return 0;
}

int ddal_bcm_ethertype_svlan_set(uint32_t port, uint32_t ethertype, uint32_t svlan)
{
    if (check_port(__func__, port) != 0 || check_ethertype(__func__, ethertype) != 0 ||
        check_vlan(__func__, svlan) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    bcm_vlan_action_set_t action;
    if (!prepare_tagging(&action, svlan) ||
        sdk_on_port(port, bcm_vlan_port_protocol_action_add, BCM_PORT_FRAMETYPE_ETHER2,
                    static_cast<uint16_t>(ethertype), &action) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting the S-VLAN of an ethertype failed on port %u\n", port);
    return 0;
}

int ddal_bcm_ethertype_svlan_remove(uint32_t port, uint32_t ethertype)
{
    if (check_port(__func__, port) != 0 || check_ethertype(__func__, ethertype) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_port(port, bcm_vlan_port_protocol_action_delete, BCM_PORT_FRAMETYPE_ETHER2,
                    static_cast<uint16_t>(ethertype)) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing the S-VLAN of an ethertype failed on port %u\n", port);
    return 0;
}

int ddal_bcm_vlan_learning_mode_set(uint32_t mode)
{
    if (mode > kHighestLearningMode)
        return log_error(DDAL_ERR_FAILURE, "invalid VLAN learning mode %u\n", mode);
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    if (sdk_on_unit(bcm_vlan_control_set, bcmVlanShared, mode) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting the VLAN learning mode failed\n");
    return 0;
}

int ddal_bcm_vlan_learning_mode_get(uint32_t *mode)
{
    if (!mode)
        return log_error(DDAL_ERR_FAILURE, "mode is NULL\n");
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    int shared = 0;
    if (sdk_on_unit(bcm_vlan_control_get, bcmVlanShared, &shared) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting the VLAN learning mode failed\n");
    *mode = shared != 0;
    return 0;
}
