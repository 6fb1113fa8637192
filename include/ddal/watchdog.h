/*
 * Software watchdog and graceful reboot.
 *
 * Reaches the service manager: through its notification socket (environment variable NOTIFY_SOCKET), /bin/systemctl and
 * /sbin/shutdown. Starting the watchdog service and rebooting need the privilege to do so. A call blocks until the
 * program that it runs has ended; a ping after the first successful one runs no program and does not block. Calls may
 * run in parallel from any thread.
 */
#ifndef DDAL_WATCHDOG_H
#define DDAL_WATCHDOG_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Keeps the software watchdog alive, and reports readiness as well. The first ping of a process starts the watchdog
 * service; while that fails, every ping tries again.
 *
 * DDAL_ERR_FAILURE: the service did not start, the notification socket does not exist, or the notification could not be
 * sent.
 *
 * @threads safe
 * @blocks one access; the first ping of a process: a program
 */
DDAL_API int ddal_watchdog_ping(void);

/*
 * Does nothing: the watchdog service owns the period. period is ignored. Returns 0.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_watchdog_set_period(uint32_t period);

/*
 * Starts a graceful reboot and returns once it is accepted.
 *
 * -1 (not DDAL_ERR_FAILURE): /sbin/reboot does not exist, and nothing was started. DDAL_ERR_FAILURE: the shutdown
 * program failed. Otherwise the negative errno of running it.
 *
 * @threads safe
 * @blocks a program
 */
DDAL_API int ddal_watchdog_reboot(void);

DDAL_END_DECLS

#endif
