/* Adds two ports to one service VLAN, limits the rate of a port and lists its service VLANs. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/eth_switch.h>

int main(void)
{
    const uint32_t sw = DDAL_ETH_SWITCH_BROADCOM;
    uint16_t vlans[8];
    uint32_t count = sizeof vlans / sizeof vlans[0], limit = 0, burst = 0;

    if (ddal_eth_switch_create_svlan(sw, 7) != 0 || ddal_eth_switch_add_svlan(sw, 14, 7) != 0 ||
        ddal_eth_switch_add_svlan(sw, 20, 7) != 0 || ddal_eth_switch_set_port_egress_shaping(sw, 14, 100000, 512) != 0)
        return 1;
    if (ddal_eth_switch_get_port_egress_shaping(sw, 14, &limit, &burst) != 0 ||
        ddal_eth_switch_get_svlans(sw, 14, vlans, &count) != 0)
        return 1;
    for (uint32_t i = 0; i < count; i++)
        printf("port 14: %" PRIu32 " kbit/s, S-VLAN %u\n", limit, (unsigned)vlans[i]);
    return 0;
}
