/*
 * Readiness of the unit, as seen by the service manager.
 *
 * Reaches the service manager's notification socket (environment variable NOTIFY_SOCKET). Requires no privilege besides
 * being allowed to notify. Does not block; may run in parallel from any thread.
 */
#ifndef DDAL_SYSTEM_H
#define DDAL_SYSTEM_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Tells the service manager that the unit is ready. DDAL_ERR_FAILURE: no notification socket. DDAL_ERR_SYSTEM: it
 * cannot be reached.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_system_notify_ready(void);

DDAL_END_DECLS

#endif
