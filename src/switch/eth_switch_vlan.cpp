// Front end of the switch: S-VLANs, translation, ethertypes and learning.
#include <ddal/bcm.h>
#include <ddal/bcm_open.h>
#include <ddal/eth_switch.h>

#include <cerrno>

#include "core/log.h"
#include "switch/eth_switch.h"

using ddal::ethswitch::admit;
using ddal::ethswitch::admit_board_first;

namespace {

constexpr uint32_t kHighestSvlan = 20;

// 0, or -EOPNOTSUPP logged under the caller's name.
int check_svlan(const char *caller, uint32_t svlan)
{
    if (svlan <= kHighestSvlan)
        return 0;
    log_line_as(LOG_ERR, caller, "S-VLAN %u is not supported (max S-VLAN ID = %u)\n", svlan, kHighestSvlan);
    return -EOPNOTSUPP;
}

} // namespace

int ddal_eth_switch_create_svlan(uint32_t sw, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_svlan_create(svlan);
    return rc == 0 ? 0 : log_error(rc, "S-VLAN %u create error\n", svlan);
}

int ddal_eth_switch_delete_svlan(uint32_t sw, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_svlan_remove(svlan);
    return rc == 0 ? 0 : log_error(rc, "S-VLAN %u delete error\n", svlan);
}

int ddal_eth_switch_add_svlan(uint32_t sw, uint32_t port, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_svlan_port_add(port, svlan);
    return rc == 0 ? 0 : log_error(rc, "add port %u to S-VLAN %u error\n", port, svlan);
}

int ddal_eth_switch_remove_svlan(uint32_t sw, uint32_t port, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_svlan_port_remove(port, svlan);
    return rc == 0 ? 0 : log_error(rc, "remove port %u from S-VLAN %u error\n", port, svlan);
}

int ddal_eth_switch_set_default_svlan(uint32_t sw, uint32_t port, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_default_svlan_set(port, svlan);
    return rc == 0 ? 0 : log_error(rc, "port %u default S-VLAN %u set error\n", port, svlan);
}

int ddal_eth_switch_get_default_svlan(uint32_t sw, uint32_t port, uint16_t *svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_default_svlan_get(port, svlan);
    return rc == 0 ? 0 : log_error(rc, "port %u default S-VLAN get error\n", port);
}

int ddal_eth_switch_remove_default_svlan(uint32_t sw, uint32_t port)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_default_svlan_remove(port);
    return rc == 0 ? 0 : log_error(rc, "port %u default S-VLAN remove error\n", port);
}

int ddal_eth_switch_get_cvlans(uint32_t sw, uint32_t port, uint16_t *cvlans, uint32_t *size)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (!size)
        return log_error(-EINVAL, "pointer C-VLANs size is NULL\n");
    const int count = ddal_bcm_cvlans_get(port, cvlans, *size);
    if (count < 0)
        return log_error(count, "get port %u C-VLANs error\n", port);

    const auto found = static_cast<uint32_t>(count);
    if (found <= *size) {
        *size = found;
        return 0;
    }
    log_line(LOG_ERR, "get port %u C-VLANs array size (%u) is less than number of C-VLANs (%u)\n", port, *size, found);
    *size = found - *size; // kept: what did not fit, not the total
    return -ENOMEM;
}

int ddal_eth_switch_get_svlans(uint32_t sw, uint32_t port, uint16_t *svlans, uint32_t *size)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (!size)
        return log_error(-EINVAL, "pointer S-VLANs size is NULL\n");
    const int count = ddal_bcm_svlans_get(port, svlans, *size);
    if (count < 0)
        return log_error(count, "get port %u S-VLANs error\n", port);

    const auto found = static_cast<uint32_t>(count);
    if (found <= *size) {
        *size = found;
        return 0;
    }
    log_line(LOG_ERR, "get port %u S-VLANs array size (%u) is less than number of S-VLANs (%u)\n", port, *size, found);
    *size = found - *size; // kept: what did not fit, not the total
    return -ENOMEM;
}

int ddal_eth_switch_get_egress_translations(uint32_t sw, uint32_t port, struct ddal_eth_switch_translation *list,
                                            uint32_t *size)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_egress_translations_get(port, list, size);
    return rc == 0 ? 0 : log_error(rc, "port %u egress translations get error\n", port);
}

int ddal_eth_switch_add_vlan_translation(uint32_t sw, uint32_t port, uint32_t cvlan, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_vlan_translation_add(port, cvlan, svlan);
    return rc == 0 ? 0 : log_error(rc, "port %u translation C-VLAN %u to S-VLAN %u add error\n", port, cvlan, svlan);
}

int ddal_eth_switch_remove_vlan_translation(uint32_t sw, uint32_t port, uint32_t cvlan, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_translation_remove(port, cvlan, svlan);
    return rc == 0 ? 0 : log_error(rc, "port %u translation C-VLAN %u to S-VLAN %u remove error\n", port, cvlan, svlan);
}

int ddal_eth_switch_get_vlan_translation(uint32_t sw, uint32_t port, struct ddal_eth_switch_translation *list,
                                         uint32_t *size)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_translation_get(port, list, size);
    return rc == 0 ? 0 : log_error(rc, "port %u translations get error\n", port);
}

int ddal_eth_switch_enable_vlan_translation(uint32_t sw, uint32_t port, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_translation_enable(port, svlan);
    return rc == 0 ? 0 : log_error(rc, "port %u translation on S-VLAN %u enable error\n", port, svlan);
}

int ddal_eth_switch_disable_vlan_translation(uint32_t sw, uint32_t port, uint32_t svlan)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_translation_disable(port, svlan);
    return rc == 0 ? 0 : log_error(rc, "port %u translation on S-VLAN %u disable error\n", port, svlan);
}

int ddal_eth_switch_get_vlan_translation_status_on_svlan(uint32_t sw, uint32_t port, uint32_t svlan, uint32_t *status)
{
    if (const int refusal = admit(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_translation_status_on_svlan(port, svlan, status);
    return rc == 0 ? 0 : log_error(rc, "port %u translation status on S-VLAN %u get error\n", port, svlan);
}

int ddal_eth_switch_get_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype, uint16_t *svlan)
{
    if (const int refusal = admit_board_first(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_ethertype_svlan_get(port, ethertype, svlan);
    return rc == 0 ? 0 : log_error(rc, "get port %u ethertype 0x%x S-VLAN error: %d\n", port, ethertype, rc);
}

int ddal_eth_switch_set_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype, uint32_t svlan)
{
    if (const int refusal = admit_board_first(__func__, sw))
        return refusal;
    if (const int refusal = check_svlan(__func__, svlan))
        return refusal;
    const int rc = ddal_bcm_ethertype_svlan_set(port, ethertype, svlan);
    return rc == 0 ? 0
                   : log_error(rc, "set port %u ethertype 0x%x S-VLAN to %u error: %d\n", port, ethertype, svlan, rc);
}

int ddal_eth_switch_remove_ethertype_svlan(uint32_t sw, uint32_t port, uint32_t ethertype)
{
    if (const int refusal = admit_board_first(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_ethertype_svlan_remove(port, ethertype);
    return rc == 0 ? 0 : log_error(rc, "remove port %u ethertype 0x%x S-VLAN error: %d\n", port, ethertype, rc);
}

int ddal_eth_switch_set_vlan_learning_mode(uint32_t sw, uint32_t mode)
{
    if (const int refusal = admit_board_first(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_learning_mode_set(mode);
    return rc == 0 ? 0 : log_error(rc, "set VLAN learning mode to %d error: %d\n", static_cast<int>(mode), rc);
}

int ddal_eth_switch_get_vlan_learning_mode(uint32_t sw, uint32_t *mode)
{
    if (const int refusal = admit_board_first(__func__, sw))
        return refusal;
    const int rc = ddal_bcm_vlan_learning_mode_get(mode);
    return rc == 0 ? 0 : log_error(rc, "get VLAN learning mode error: %d\n", rc);
}
