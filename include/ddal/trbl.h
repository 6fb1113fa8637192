/*
 * Trouble log: snapshots of the system's logs for later analysis, taken by /sbin/trbl_linux_log_store.
 *
 * Storing runs that program and blocks until it has ended; it needs the program's privileges, deleting those of the
 * file's directory. Calls may run in parallel.
 */
#ifndef DDAL_TRBL_H
#define DDAL_TRBL_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Does nothing and returns 0: this board needs no preparation.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_trbl_prepare(void);

/*
 * Stores the logs.
 *
 * name: argument of the program.
 *
 * Returns 0. DDAL_ERR_TRBL_STORE: the program could not be run or failed.
 *
 * @threads safe
 * @blocks a program
 */
DDAL_API int ddal_trbl_store(const char *name);

/*
 * Deletes a stored log.
 *
 * path: the file.
 *
 * Returns 0 or the negative errno of unlink.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_trbl_delete(const char *path);

DDAL_END_DECLS

#endif
