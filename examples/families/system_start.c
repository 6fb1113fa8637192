/* The start-up software's one call: settings that outlive a restart are brought back. */
#include <stdio.h>

#include <ddal/atboot.h>
#include <ddal/error.h>

int main(void)
{
    const int result = ddal_atboot_run(); /* every action has run, whatever the result */
    char reason[80];

    if (result != 0) {
        ddal_strerror(result, reason, sizeof reason);
        fprintf(stderr, "start-up: %s\n", reason);
        return 1;
    }
    printf("settings are back\n");
    return 0;
}
