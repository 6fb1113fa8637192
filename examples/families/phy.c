/* Waits for an event of a backhaul link and prints its state. */
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>

#include <ddal/phy.h>

int main(void)
{
    struct ddal_phy_copper_status status;
    struct pollfd link = {-1, POLLIN, 0};
    uint16_t up = 0;

    if (ddal_phy_copper_event_open(0, 0, &link.fd) != 0)
        return 1;
    /* The descriptor is readable from the start: the first event is the present state. */
    if (poll(&link, 1, 10000) == 1 && ddal_phy_copper_event_get(link.fd, &up) == 0)
        printf("the link of device 0 is %s\n", up ? "up" : "down");
    if (ddal_phy_copper_get_status(0, &status) == 0 && status.link)
        printf("at %" PRIu32 " Mb/s\n", status.speed);
    return ddal_phy_copper_event_close(link.fd) == 0 ? 0 : 1;
}
