// Software watchdog and graceful reboot.
#include <ddal/watchdog.h>

#include <atomic>
#include <cerrno>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "core/foreign_call.h"
#include "core/log.h"
#include "core/program.h"

using ddal::core::run_program;

namespace {

// Two concurrent first pings may both start the service, which is harmless.
std::atomic<bool> watchdog_service_started{false};

} // namespace

int ddal_watchdog_ping(void)
{
    if (!watchdog_service_started) {
        if (run_program("/bin/systemctl", "start", "swdd.service") != 0)
            return log_error(DDAL_ERR_FAILURE, "error start software watchdog service\n");
        watchdog_service_started = true;
    }
    const ddal::core::ForeignCall call;
    int sent = 0;
    do
        sent = sd_notify(0, "READY=1\nWATCHDOG=1\n");
    while (sent == -EINTR);
    if (sent <= 0)
        return log_error(DDAL_ERR_FAILURE, "error sd_notify\n");
    return 0;
}

int ddal_watchdog_set_period(uint32_t)
{
    return 0;
}

int ddal_watchdog_reboot(void)
{
    log_line(LOG_INFO, "initialize a system reboot (graceful shutdown)\n");
    // kept: the test is for reboot, the program that runs is shutdown.
    if (access("/sbin/reboot", F_OK) != 0 && errno == ENOENT) {
        log_line(LOG_WARNING, "/sbin/reboot does not exist, aborting shutdown\n");
        return -1; // kept: callers test for -1
    }
    const int outcome = run_program("/sbin/shutdown", "-r", "+0", "sec");
    if (outcome != 0)
        log_line(LOG_ERR, "/sbin/shutdown returned: %d\n", outcome);
    return ddal::core::code_of(outcome);
}
