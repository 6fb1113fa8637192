// Front end of the switch: addresses, multicast filters, loopback and tunnelling.
#include <ddal/bcm.h>
#include <ddal/eth_switch.h>

#include "core/log.h"
#include "switch/front/eth_switch.h"

namespace {

constexpr uint32_t kAnyEthertype = 0;
constexpr uint32_t kLearnedEntries = 0;
constexpr uint32_t kStaticEntries = 1;

} // namespace

int ddal_eth_switch_add_multicast_filter(uint32_t sw, uint32_t port, uint32_t dst_port, const uint8_t mac[6])
{
    return on_switch(sw, ddal_bcm_dstmac_filtered_tunneling_set(port, dst_port, mac),
                     "port %u multicast filter to port %u add error\n", port, dst_port);
}

int ddal_eth_switch_remove_multicast_filter(uint32_t sw, uint32_t port, uint32_t dst_port, const uint8_t mac[6])
{
    return on_switch(sw, ddal_bcm_dstmac_filtered_tunneling_remove(port, dst_port, mac),
                     "port %u multicast filter to port %u remove error\n", port, dst_port);
}

int ddal_eth_switch_get_multicast_filters(uint32_t sw, uint32_t port, struct ddal_eth_switch_multicast_filter *list,
                                          uint32_t *size)
{
    return on_switch(sw, ddal_bcm_dstmac_filtered_tunneling_get(port, list, size),
                     "port %u multicast filters get error\n", port);
}

int ddal_eth_switch_enable_loopback(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_loopback_add(port), "port %u loopback enable error\n", port);
}

int ddal_eth_switch_get_loopback(uint32_t sw, uint32_t port, uint32_t *state)
{
    return on_switch(sw, ddal_bcm_loopback_get(port, state), "port %u loopback get error\n", port);
}

int ddal_eth_switch_disable_loopback(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_loopback_remove(port), "port %u loopback disable error\n", port);
}

int ddal_eth_switch_add_tunneling(uint32_t sw, uint32_t port1, uint32_t port2)
{
    return on_switch(sw, ddal_bcm_tunneling_set(port1, port2, kAnyEthertype),
                     "Setting up tunneling on ports %u and %u error\n", port1, port2);
}

int ddal_eth_switch_add_tunneling_with_ethertype_filter(uint32_t sw, uint32_t port1, uint32_t port2, uint32_t ethertype)
{
    return on_switch(sw, ddal_bcm_tunneling_set(port1, port2, ethertype),
                     "Setting up tunneling on ports %u and %u error\n", port1, port2);
}

int ddal_eth_switch_remove_tunneling(uint32_t sw, uint32_t port1, uint32_t port2)
{
    return on_switch(sw, ddal_bcm_tunneling_remove(port1, port2), "Removing tunneling on ports %u and %u error\n",
                     port1, port2);
}

int ddal_eth_switch_get_tunneling(uint32_t sw, uint32_t port, uint32_t *peer_port)
{
    return on_switch(sw, ddal_bcm_tunneling_get(port, peer_port), "Getting tunneling on port %u error\n", port);
}

int ddal_eth_switch_get_port_learned_addrs(uint32_t sw, uint32_t port, struct ddal_eth_switch_mac_entry *list,
                                           uint32_t *size)
{
    return on_switch(sw, ddal_bcm_get_mac_addresses(port, list, size, kLearnedEntries),
                     "port %u learned addresses get error\n", port);
}

int ddal_eth_switch_get_static_arl_entries(uint32_t sw, uint32_t port, struct ddal_eth_switch_mac_entry *list,
                                           uint32_t *size)
{
    return on_switch(sw, ddal_bcm_get_mac_addresses(port, list, size, kStaticEntries),
                     "port %u static ARL entries get error\n", port);
}

int ddal_eth_switch_add_static_arl_entry(uint32_t sw, uint32_t port, const uint8_t mac[6], uint32_t vlan)
{
    return on_switch(sw, ddal_bcm_add_static_arl_entry(port, mac, vlan), "port %u static ARL entry add error\n", port);
}

int ddal_eth_switch_remove_static_arl_entry(uint32_t sw, uint32_t port, const uint8_t mac[6], uint32_t vlan)
{
    return on_switch(sw, ddal_bcm_remove_static_arl_entry(port, mac, vlan), "port %u static ARL entry remove error\n",
                     port);
}

int ddal_eth_switch_clear_port_learned_arl_entries(uint32_t sw, uint32_t port)
{
    return on_switch(sw, ddal_bcm_learned_arl_entries_clear(port), "port %u learned ARL entries clear error\n", port);
}
