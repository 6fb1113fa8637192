/* Prints the board type and the software of the board. */
#include <stdio.h>

#include <ddal/devicetree.h>
#include <ddal/unit.h>
#include <ddal/version.h>

int main(void)
{
    const int type = ddal_unit_get_board(); /* enum ddal_board_type */
    char serial[32], software[64];
    size_t size = sizeof software;
    uint8_t mac[6];

    if (type < 0 || ddal_devicetree_get_serial_number(0, sizeof serial, serial) != 0 ||
        ddal_version_get_lfs_version(software, &size) != 0 || ddal_devicetree_get_mac_addr(0, "eth0", mac) != 0)
        return 1;
    printf("board type %d, serial number %s, software %s\n", type, serial, software);
    printf("eth0 is %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return 0;
}
