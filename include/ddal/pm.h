/*
 * Run-time clock of the unit, kept by the uptime daemon and asked for through its local socket.
 *
 * Each call makes a connection and blocks until the daemon answers, for at most 30 s. Any thread. Requires no
 * privilege.
 */
#ifndef DDAL_PM_H
#define DDAL_PM_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads how long the unit has run in its life.
 *
 * millisec: receives the part of a day, 0 to 86,399,999 ms; unchanged after a failure.
 * days:     receives the whole days; unchanged after a failure.
 *
 * Returns 0 on success. -EINVAL: NULL pointer. -ECONNREFUSED: the daemon is not running. -EAGAIN: no answer within 30
 * s. -EIO: an answer of another size. Otherwise the negative errno of the socket calls.
 *
 * @threads safe
 * @blocks up to 30 s: for the answer, once the daemon has taken the connection
 */
DDAL_API int ddal_pm_get_runtimeclock(uint32_t *millisec, uint32_t *days);

DDAL_END_DECLS

#endif
