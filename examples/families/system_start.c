/* Restores the settings that survive a restart. The start-up software calls this once. */
#include <stdio.h>

#include <ddal/atboot.h>
#include <ddal/error.h>

int main(void)
{
    const int result = ddal_atboot_run(); /* every action has run, even after a failure */
    char reason[80];

    if (result != 0) {
        ddal_strerror(result, reason, sizeof reason);
        fprintf(stderr, "start-up: %s\n", reason);
        return 1;
    }
    printf("settings are back\n");
    return 0;
}
