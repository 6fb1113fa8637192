/*
 * The log lines, the last failure and the version of the library, for applications with their own log. Operations
 * beyond the board family's interface: an application that must also link against another implementation of the
 * interface does without them.
 */
#ifndef DDAL_DIAGNOSIS_H
#define DDAL_DIAGNOSIS_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Receives a log line, on the thread that logs it. Several threads may call it at the same time. Must not call the
 * library.
 *
 * priority: LOG_ERR to LOG_DEBUG of <syslog.h>.
 * line:     "function:source line- text\n", cut at 1,023 characters. Some lines of the RF card end without "\n", and
 * the next one continues them. Valid during the call only.
 */
typedef void (*ddal_ext_log_handler)(void *user, int priority, const char *line);

/*
 * Sets the function that receives the lines of the library instead of standard error. The system log receives them as
 * before.
 *
 * handler: NULL leads the lines back to standard error.
 * user:    passed on to the handler. Keep it valid after a change: another thread may be passing a line on.
 *
 * Returns 0.
 *
 * @threads safe: but not from a handler
 * @blocks none
 */
DDAL_API int ddal_ext_set_log_handler(ddal_ext_log_handler handler, void *user);

/* A failure. 328 bytes. */
struct ddal_ext_failure {
    int32_t code;  /* result code of the operation, or the negative errno of an access that no line reports; 0: none */
    int32_t error; /* errno of the access that failed; 0: the device or the program answered, or none was reached */
    char operation[64]; /* the function that reported it, as in its log line; empty where it logs nothing */
    char path[256];     /* the file, device node, attribute or program that was accessed last; empty where unknown */
};

/*
 * Reads the last failure of the calling thread. Like errno, it has a meaning after an operation has failed, and
 * operations that succeed may change it.
 *
 * failure: NULL forgets the failure. An application that does so before an operation knows that what it reads
 *          afterwards belongs to that operation.
 *
 * Returns 0.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_ext_last_failure(struct ddal_ext_failure *failure);

/*
 * Returns the version of the library, "1.0.0" for example. The text is constant.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API const char *ddal_ext_version(void);

DDAL_END_DECLS

#endif
