/* Restarts the RF card, requests the state of its application and, given an image, loads it into the card. */
#include <stdio.h>

#include <ddal/bsl.h>
#include <ddal/ext.h>
#include <ddal/rfup.h>

int main(int argc, char **argv)
{
    uint8_t state[2];
    uint32_t verdict = BSL_STATUS_NOT_REQUIRED;

    if (ddal_ext_rfcard_restart(0) != 0) /* waits up to 22 s until the application is ready */
        return 1;
    if (ddal_rfup_msg(0, 0, NULL, sizeof state, state) != 0)
        return 1;
    printf("the RF card is %s\n", state[1] == 0x5A ? "ready" : "busy");
    if (argc < 2)
        return 0;
    /* Takes minutes. Success requires a result of 0 and the verdict. */
    if (ddal_ext_rfcard_upgrade(argv[1], 0, 0, NULL, NULL, &verdict) != 0)
        return 1;
    return verdict == BSL_STATUS_SUCCESSFUL || verdict == BSL_STATUS_NOT_REQUIRED ? 0 : 1;
}
