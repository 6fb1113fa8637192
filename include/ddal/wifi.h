/*
 * Wi-Fi fitting of the board, from the system-information store.
 *
 * Any thread; the privilege and the blocking are those of ddal_sysinfo_get_uint.
 */
#ifndef DDAL_WIFI_H
#define DDAL_WIFI_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Returns 0 if the board has Wi-Fi, -1 (a plain "no", not an errno) if it has not or if that cannot be told.
 *
 * @threads safe
 * @blocks until a writer of the store is done
 */
DDAL_API int ddal_is_wifi_supported(void);

DDAL_END_DECLS

#endif
