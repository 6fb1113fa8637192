/*
 * The library's log channel: standard error and the system log.
 *
 * Every failure inside the library is written here once, where it is detected. Applications may write to the same
 * channel. May be called from any thread; blocks only as long as standard error and the system log do. Requires no
 * privilege.
 */
#ifndef DDAL_LOG_H
#define DDAL_LOG_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Writes one line to standard error (with a prefix for priorities 3, 4, 6 and 7: "[DDAL_ERROR] ", "[DDAL_WARNING] ",
 * "[DDAL_INFO] ", "[DDAL_DEBUG] ") and to the system log (without it).
 *
 * priority: a syslog priority, 0 to 7. There is no level filter.
 * format:   as printf(3); "%m" is the text of errno, the same on both outputs. The convention is
 *           "%s:%u- ...\n" with the calling function's name and source line first.
 *
 * Returns 0 in every case; errno is unchanged.
 *
 * @threads safe
 * @blocks two accesses: standard error and the system log
 */
DDAL_API int __ddal_log(int priority, const char *format, ...) DDAL_PRINTF(2, 3);

DDAL_END_DECLS

#endif
