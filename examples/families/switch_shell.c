/* Runs one command in the switch's diagnostic shell. */
#include <stdio.h>

#include <ddal/bcmdiag.h>
#include <ddal/error.h>

int main(void)
{
    const int result = telnet_bcmdiag(stdout, "show counters ge%d", 14); /* stdout receives the output */
    char reason[80];

    if (result == 0) {
        printf("the command succeeded\n");
        return 0;
    }
    ddal_strerror(result, reason, sizeof reason);
    fprintf(stderr, "%s\n", result > 0 ? "the command failed" : reason);
    return 1;
}
