// ddalctl watchdog, ready, reboot: what the service manager is told.
#include <ddal/system.h>
#include <ddal/watchdog.h>

#include "ddalctl/confirm.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"

namespace ddalctl {

namespace {

void ping(const Arguments &, Report &)
{
    require(DDAL(ddal_watchdog_ping)());
}

void ready(const Arguments &, Report &)
{
    require(DDAL(ddal_system_notify_ready)());
}

void reboot(const Arguments &arguments, Report &)
{
    confirm(arguments, "Reboot the unit");
    const int result = DDAL(ddal_watchdog_reboot)();
    if (result == -1) // not a code: the library says "no"
        throw Failure(result, kNothingThere, "there is no /sbin/reboot; nothing was started");
    require(result);
}

} // namespace

Family watchdog_family()
{
    return {"watchdog",
            "the software watchdog",
            {{"ping", "keep the watchdog alive; starts its service when this is the first ping", {}, ping}}};
}

Family ready_family()
{
    return {"ready", "tell the service manager that the unit is ready", {{"", "report readiness", {}, ready}}};
}

Family reboot_family()
{
    return {"reboot", "reboot the unit gracefully", {{"", "start a graceful reboot", {kYes}, reboot}}};
}

} // namespace ddalctl
