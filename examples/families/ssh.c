/* Ends SSH sessions without a response of the client after 10 minutes, now and after every restart. */
#include <stdio.h>

#include <ddal/sshd.h>

int main(void)
{
    if (ddal_sshd_set_parameter("ClientAliveInterval", "200", DDAL_SSHD_PERSIST) != 0 ||
        ddal_sshd_set_parameter("ClientAliveCountMax", "3", DDAL_SSHD_PERSIST) != 0)
        return 1;
    if (ddal_sshd_set_banner("Authorised use only.\n") != 0)
        return 1;
    if (ddal_sshd_restart() != 0) /* the daemon now reads its configuration */
        return 1;
    printf("the daemon runs with the new settings\n");
    return 0;
}
