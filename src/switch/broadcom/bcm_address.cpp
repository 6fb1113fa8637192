// Learned and static addresses of the switch's ports.
#include <ddal/bcm.h>
#include <ddal/eth_switch.h>

#include <cstring>

#include "switch/broadcom/bounded_list.h"
#include "switch/broadcom/l2_address.h"
#include "switch/broadcom/port.h"
#include "switch/broadcom/vlan.h"

using namespace ddal::ethswitch;

namespace {

static_assert(sizeof(ddal_eth_switch_mac_entry) == 8);

constexpr int kLocalModule = 0;
constexpr uint32_t kLearnedOnly = 0;

struct Walk {
    L2Layout layout;
    int port;
    bool static_entries;
    BoundedList<ddal_eth_switch_mac_entry> list;
};

int visit(int, bcm_l2_addr_t *entry, void *data)
{
    auto *const walk = static_cast<Walk *>(data);
    const bool is_static = entry->flags & BCM_L2_STATIC;
    // A multicast entry names a group of ports instead of a port.
    if (entry->flags & BCM_L2_MCAST || is_static != walk->static_entries || walk->layout.port(entry) != walk->port)
        return 0;
    ddal_eth_switch_mac_entry found{};
    walk->layout.read_mac(entry, found.mac);
    found.vlan = walk->layout.vlan(entry);
    walk->list.add(found);
    return 0;
}

} // namespace

int ddal_bcm_get_mac_addresses(uint32_t port, struct ddal_eth_switch_mac_entry *list, uint32_t *size,
                               uint32_t static_entries)
{
    if (check_port(__func__, port) != 0 || check_list(__func__, list, size) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    Walk walk{{}, static_cast<int>(port), static_entries != 0, {list, *size}};
    if (!walk.layout.find() || sdk_on_unit(bcm_l2_traverse, visit, &walk) != 0)
        return log_error(DDAL_ERR_FAILURE, "Getting addresses failed on port %u\n", port);
    return walk.list.settle(size);
}

int ddal_bcm_add_static_arl_entry(uint32_t port, const uint8_t mac[6], uint32_t vlan)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, mac) != 0 || check_vlan(__func__, vlan) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    L2Layout layout;
    bcm_l2_addr_t entry{};
    if (!layout.find() || !sdk_done(bcm_l2_addr_t_init, &entry, mac, static_cast<uint16_t>(vlan)))
        return log_error(DDAL_ERR_FAILURE, "Adding static address failed on port %u\n", port);
    entry.flags |= BCM_L2_STATIC;
    layout.set_port(&entry, static_cast<int>(port));
    if (sdk_on_unit(bcm_l2_addr_add, &entry) != 0)
        return log_error(DDAL_ERR_FAILURE, "Adding static address failed on port %u\n", port);
    return 0;
}

int ddal_bcm_remove_static_arl_entry(uint32_t port, const uint8_t mac[6], uint32_t vlan)
{
    if (check_port(__func__, port) != 0 || check_given(__func__, mac) != 0 || check_vlan(__func__, vlan) != 0 ||
        open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    uint8_t address[6];
    memcpy(address, mac, sizeof address);
    L2Layout layout;
    bcm_l2_addr_t entry{};
    if (!layout.find() || sdk_on_unit(bcm_l2_addr_get, &address[0], static_cast<uint16_t>(vlan), &entry) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing static address failed on port %u\n", port);
    if (!(entry.flags & BCM_L2_STATIC) || layout.port(&entry) != static_cast<int>(port))
        return log_error(DDAL_ERR_FAILURE, "port %u has no such static address\n", port);
    if (sdk_on_unit(bcm_l2_addr_delete, &address[0], static_cast<uint16_t>(vlan)) != 0)
        return log_error(DDAL_ERR_FAILURE, "Removing static address failed on port %u\n", port);
    return 0;
}

int ddal_bcm_learned_arl_entries_clear(uint32_t port)
{
    if (check_port(__func__, port) != 0 || open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;
    int gport = 0;
    if (sdk_on_port(port, bcm_port_gport_get, &gport) != 0 ||
        sdk_on_unit(bcm_l2_addr_delete_by_port, kLocalModule, gport, kLearnedOnly) != 0)
        return log_error(DDAL_ERR_FAILURE, "Clearing learned addresses failed on port %u\n", port);
    return 0;
}
