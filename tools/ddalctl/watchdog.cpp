// ddalctl watchdog, ready, reboot: messages to the service manager.
#include <ddal/system.h>
#include <ddal/watchdog.h>

#include <cerrno>

#include "ddalctl/confirm.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"

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
    const int result = quietly([] { return DDAL(ddal_watchdog_reboot)(); });
    if (result == -1) // not a result code: the program to run is missing
        throw Failure(-ENOENT, kNothingThere, "/sbin/reboot does not exist; nothing was started", "/sbin/reboot");
    require(result);
}

} // namespace

Family watchdog_family()
{
    return {"watchdog",
            "the software watchdog",
            {{"ping", "ping the watchdog; the first ping starts its service", {}, ping}}};
}

Family ready_family()
{
    return {"ready", "report readiness to the service manager", {{"", "report readiness", {}, ready}}};
}

Family reboot_family()
{
    return {"reboot", "reboot the unit gracefully", {{"", "start a graceful reboot", {kYes}, reboot}}};
}

} // namespace ddalctl
