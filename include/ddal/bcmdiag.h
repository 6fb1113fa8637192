/*
 * Diagnostic shell of the Broadcom switch: a line-oriented text session with the switch's user service on the loopback
 * address, TCP port 5342.
 *
 * Each call opens a connection of its own and keeps no state, so calls may run in parallel; whether the service accepts
 * parallel sessions is its own business. No privilege is needed. A call makes three round trips and waits at most 3 s
 * for the next piece of data in each, so a silent service costs three seconds at most.
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
 * -ENETDOWN: the service closed the connection. -ETIMEDOUT: no prompt within 3 s of silence. -EIO: the service took no
 * input for 3 s, or the output could not be written. Otherwise the negative errno of the failed step, -ECONNREFUSED
 * when no service is running.
 *
 * @threads safe on different units: streams
 * @blocks until the command is done; 3 s without data end it
 */
DDAL_API int telnet_bcmdiag(FILE *out, const char *format, ...) DDAL_PRINTF(2, 3);

DDAL_END_DECLS

#endif
