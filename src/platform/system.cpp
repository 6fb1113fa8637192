// Readiness of the unit.
#include <ddal/system.h>

#include <cerrno>

#include <systemd/sd-daemon.h>

#include "core/foreign_call.h"
#include "core/log.h"

int ddal_system_notify_ready(void)
{
    const ddal::core::ForeignCall call;
    int sent = 0;
    do
        sent = sd_notify(0, "READY=1");
    while (sent == -EINTR);
    if (sent < 0)
        return log_error(DDAL_ERR_SYSTEM, "sd_notify call failed: %d\n", sent);
    if (sent == 0)
        return log_error(DDAL_ERR_FAILURE, "status data could not be sent\n");
    return 0;
}
