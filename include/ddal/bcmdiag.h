/*
 * Diagnostic shell of the Broadcom switch: a line-oriented text session with the switch's user service on the loopback
 * address, TCP port 5342.
 *
 * Each call opens a connection and keeps no state, so calls may run in parallel. The service decides whether it accepts
 * parallel sessions. The calls require no privilege. A call makes three round trips and waits at most 3 s
 * for the next piece of data in each, so a silent service costs three seconds at most. A service that is not silent
 * either is held to 30 s and 4 MiB (4,194,304 bytes) for each text that it takes and for each response that it gives.
 *
 * Failures are written to the system log only (facility user, priority error).
 */
#ifndef DDAL_BCMDIAG_H
#define DDAL_BCMDIAG_H

#include <stdio.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Runs one diagnostic command and reports the command's own result.
 *
 * out:    receives every line that the command prints, without carriage returns, while it runs; a line of more than
 *         1,024 bytes arrives in pieces of that length. NULL: the output is dropped. After a failure it holds the lines
 *         that came before it.
 * format: the command as printf(3), one line, without the newline.
 *
 * Returns 0 when the command succeeded, and the command's own result (positive or negative) when it failed.
 * -ENETDOWN: the service closed the connection. -ETIMEDOUT: no prompt within 3 s of silence, 30 s in all or 4 MiB.
 * -EIO: the service took no input for 3 s, or not all of it within these limits, or the output could not be written.
 * Otherwise the negative errno of the failed step, -ECONNREFUSED when no service is running.
 *
 * @threads safe on different units: streams
 * @blocks up to 183 s: where the service drips; a silent one: 3 s
 */
DDAL_API int telnet_bcmdiag(FILE *out, const char *format, ...) DDAL_PRINTF(2, 3);

DDAL_END_DECLS

#endif
