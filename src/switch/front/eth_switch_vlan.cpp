// Front end of the switch: S-VLANs, translation, ethertypes and learning.
#include <ddal/bcm.h>
#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include <cerrno>

#include "core/log.h"
#include "switch/front/eth_switch.h"

using ddal::ethswitch::admit;
using ddal::ethswitch::admit_board_first;

namespace {

struct VlanList {
    const char *caller;
    const char *kind;
    int (*get)(uint32_t port, uint16_t *vlans, uint32_t size); // returns the number of VLANs, or a negative code
};

int list_vlans(const VlanList &list, uint32_t port, uint16_t *vlans, uint32_t *size)
{
    if (!size)
        return log_error_as(list.caller, -EINVAL, "pointer %s size is NULL\n", list.kind);
    const int count = list.get(port, vlans, *size);
    if (count < 0)
        return log_error_as(list.caller, count, "get port %u %s error\n", port, list.kind);
    const auto found = static_cast<uint32_t>(count);
    if (found <= *size) {
        *size = found;
        return 0;
    }
    log_line_as(LOG_ERR, list.caller, "get port %u %s array size (%u) is less than number of %s (%u)\n", port,
                list.kind, *size, list.kind, found);
    *size = found - *size; // kept: the number that did not fit instead of the total
    return -ENOMEM;
}

} // namespace

int ddal_eth_switch_create_svlan(uint32_t sw, uint32_t svlan)
{
    return on_svlan(admit(__func__, sw), svlan, ddal_bcm_svlan_create(svlan), "S-VLAN %u create error\n", svlan);
}

int ddal_eth_switch_delete_svlan(uint32_t sw, uint32_t svlan)
{
    return on_svlan(admit(__func__, sw), svlan, ddal_bcm_svlan_remove(svlan), "S-VLAN %u delete error\n", svlan);
}

int ddal_eth_switch_add_svlan(uint32_t sw, uint32_t port, uint32_t svlan)
{
    return on_svlan(admit(__func__, sw), svlan, ddal_bcm_svlan_port_add(port, svlan),
                    "add port %u to S-VLAN %u error\n", port, svlan);
}

int ddal_eth_switch_remove_svlan(uint32_t sw, uint32_t port, uint32_t svlan)
{
    return on_svlan(admit(__func__, sw), svlan, ddal_bcm_svlan_port_remove(port, svlan),
                    "remove port %u from S-VLAN %u error\n", port, svlan);
}

int ddal_eth_switch_set_default_svlan(uint32_t sw, uint32_t port, uint32_t svlan)
{
    return on_svlan(admit(__func__, sw), svlan, ddal_bcm_default_svlan_set(port, svlan),
                    "port %u default S-VLAN %u set error\n", port, svlan);
}

int ddal_eth_switch_get_default_svlan(uint32_t sw, uint32_t port, uint16_t *svlan)
{
    return on_switch(sw, ddal_bcm_default_svlan_get(port, svlan), "port %u default S-VLAN get error\n", port);
}

int ddal_eth_switch_remove_default_svlan(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_default_svlan_remove(port), "port %u default S-VLAN remove error\n", port);
}

int ddal_eth_switch_get_cvlans(uint32_t sw, uint32_t port, uint16_t *cvlans, uint32_t *size)
{
    const int refusal = admit(__func__, sw);
    return refusal != 0 ? refusal : list_vlans({__func__, "C-VLANs", ddal_bcm_cvlans_get}, port, cvlans, size);
}

int ddal_eth_switch_get_svlans(uint32_t sw, uint32_t port, uint16_t *svlans, uint32_t *size)
{
    const int refusal = admit(__func__, sw);
    return refusal != 0 ? refusal : list_vlans({__func__, "S-VLANs", ddal_bcm_svlans_get}, port, svlans, size);
}

int ddal_eth_switch_get_egress_translations(uint32_t sw, uint32_t port, struct ddal_eth_switch_translation *list,
                                            uint32_t *size)
{
    return on_switch(sw, ddal_bcm_egress_translations_get(port, list, size), "port %u egress translations get error\n",
                     port);
}

int ddal_eth_switch_add_vlan_translation(uint32_t sw, uint32_t port, uint32_t cvlan, uint32_t svlan)
{
    return on_svlan(admit(__func__, sw), svlan, ddal_bcm_vlan_translation_add(port, cvlan, svlan),
                    "port %u translation C-VLAN %u to S-VLAN %u add error\n", port, cvlan, svlan);
}

int ddal_eth_switch_remove_vlan_translation(uint32_t sw, uint32_t port, uint32_t cvlan, uint32_t svlan)
{
    return on_switch(sw, ddal_bcm_vlan_translation_remove(port, cvlan, svlan),
                     "port %u translation C-VLAN %u to S-VLAN %u remove error\n", port, cvlan, svlan);
}

int ddal_eth_switch_get_vlan_translation(uint32_t sw, uint32_t port, struct ddal_eth_switch_translation *list,
                                         uint32_t *size)
{
    return on_switch(sw, ddal_bcm_vlan_translation_get(port, list, size), "port %u translations get error\n", port);
}

int ddal_eth_switch_enable_vlan_translation(uint32_t sw, uint32_t port, uint32_t svlan)
{
    return on_switch(sw, ddal_bcm_vlan_translation_enable(port, svlan),
                     "port %u translation on S-VLAN %u enable error\n", port, svlan);
}

int ddal_eth_switch_disable_vlan_translation(uint32_t sw, uint32_t port, uint32_t svlan)
{
    return on_switch(sw, ddal_bcm_vlan_translation_disable(port, svlan),
                     "port %u translation on S-VLAN %u disable error\n", port, svlan);
}

int ddal_eth_switch_get_vlan_translation_status_on_svlan(uint32_t sw, uint32_t port, uint32_t svlan, uint32_t *status)
{
    return on_switch(sw, ddal_bcm_vlan_translation_status_on_svlan(port, svlan, status),
                     "port %u translation status on S-VLAN %u get error\n", port, svlan);
}

int ddal_eth_switch_get_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype, uint16_t *svlan)
{
    return on_board_switch(sw, ddal_bcm_ethertype_svlan_get(port, ethertype, svlan),
                           "get port %u ethertype 0x%x S-VLAN error: %d\n", port, ethertype, rc);
}

int ddal_eth_switch_set_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype, uint32_t svlan)
{
    return on_svlan(admit_board_first(__func__, sw), svlan, ddal_bcm_ethertype_svlan_set(port, ethertype, svlan),
                    "set port %u ethertype 0x%x S-VLAN to %u error: %d\n", port, ethertype, svlan, rc);
}

int ddal_eth_switch_remove_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype)
{
    return on_board_switch(sw, ddal_bcm_ethertype_svlan_remove(port, ethertype),
                           "remove port %u ethertype 0x%x S-VLAN error: %d\n", port, ethertype, rc);
}

int ddal_eth_switch_set_vlan_learning_mode(uint32_t sw, uint32_t mode)
{
    return on_board_switch(sw, ddal_bcm_vlan_learning_mode_set(mode), "set VLAN learning mode to %d error: %d\n",
                           static_cast<int>(mode), rc);
}

int ddal_eth_switch_get_vlan_learning_mode(uint32_t sw, uint32_t *mode)
{
    return on_board_switch(sw, ddal_bcm_vlan_learning_mode_get(mode), "get VLAN learning mode error: %d\n", rc);
}
