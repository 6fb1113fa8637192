/* Adds two ports to one service VLAN, limits the rate of a port and lists its service VLANs. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/eth_switch.h>

#define SWITCH 2 /* the number of the board's only switch */

int main(void)
{
    uint16_t vlans[8];
    uint32_t count = sizeof vlans / sizeof vlans[0], limit = 0, burst = 0;

    if (ddal_eth_switch_create_svlan(SWITCH, 7) != 0 || ddal_eth_switch_add_svlan(SWITCH, 14, 7) != 0 ||
        ddal_eth_switch_add_svlan(SWITCH, 20, 7) != 0 ||
        ddal_eth_switch_set_port_egress_shaping(SWITCH, 14, 100000, 512) != 0)
        return 1;
    if (ddal_eth_switch_get_port_egress_shaping(SWITCH, 14, &limit, &burst) != 0 ||
        ddal_eth_switch_get_svlans(SWITCH, 14, vlans, &count) != 0)
        return 1;
    for (uint32_t i = 0; i < count; i++)
        printf("port 14: %" PRIu32 " kbit/s, S-VLAN %u\n", limit, (unsigned)vlans[i]);
    return 0;
}
