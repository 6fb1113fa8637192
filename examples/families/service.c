/* Reports readiness to the service manager, then pings the watchdog regularly. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/pm.h>
#include <ddal/system.h>
#include <ddal/watchdog.h>

int main(void)
{
    uint32_t milliseconds = 0, days = 0;

    if (ddal_system_notify_ready() != 0)
        return 1;
    for (int i = 0; i < 3; i++) { /* more often than the watchdog service's period */
        if (ddal_watchdog_ping() != 0)
            return 1;
    }
    if (ddal_pm_get_runtimeclock(&milliseconds, &days) != 0)
        return 1;
    printf("alive, after %" PRIu32 " days of the unit's life\n", days);
    return 0;
}
