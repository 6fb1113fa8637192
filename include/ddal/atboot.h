/*
 * Actions of the library at system start.
 *
 * Families that keep settings over a restart bring them back here: LED states, password history, root access. Meant to
 * be called once, by the start-up software, with the privileges of root; blocks until every action is done, which
 * includes the programs that they run.
 */
#ifndef DDAL_ATBOOT_H
#define DDAL_ATBOOT_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Runs every action in a fixed order, whatever the earlier ones returned; each is announced in the log.
 *
 * Returns 0, or the value of the last action that failed.
 *
 * @threads one caller at a time: in the whole unit
 * @blocks programs: those of the actions; some accesses besides
 */
DDAL_API int ddal_atboot_run(void);

DDAL_END_DECLS

#endif
