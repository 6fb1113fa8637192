/* Prints the text of a failure and writes a line to the library's log channel. */
#include <stdio.h>
#include <syslog.h>

#include <ddal/cpld.h>
#include <ddal/error.h>
#include <ddal/log.h>

int main(void)
{
    uint8_t value = 0;
    const int result = ddal_cpld_read(3, &value); /* not a multiple of 4: the library logs the failure */
    char reason[80];

    ddal_strerror(result, reason, sizeof reason);
    printf("%d: %s\n", result, reason);
    __ddal_log(LOG_INFO, "%s:%u- going on without the CPLD\n", __func__, (unsigned)__LINE__);
    return 0;
}
