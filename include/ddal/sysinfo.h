/*
 * System-information store: numbers that describe the unit and outlive restarts and software updates.
 *
 * An item is named by category, key and second key (0 where it has none). The library keeps the items in the text file
 * /flash/config/sysinfo, one a line, which a person may read and edit:
 *
 *     # Wi-Fi fitted
 *     0.13.20 = 1
 *     0.15.0 = 0x2a   # text after the value is kept, too
 *
 * If an item stands there twice, the later line counts. A line that cannot be understood is reported in the log with
 * its number, costs no other item and is kept when the file is rewritten.
 *
 * Reading needs read permission on the file, setting write permission on its directory. The file is replaced as a whole
 * under a lock, so calls may run in parallel in any thread and process, and a loss of power leaves the old or the new
 * file. A call waits for a setter that is at work for at most 20 s and then fails with -EBUSY.
 *
 * The three calls are weak symbols: an application that defines them supplies its own store, which the library then
 * uses as well.
 */
#ifndef DDAL_SYSINFO_H
#define DDAL_SYSINFO_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads one item.
 *
 * value: receives the number; unchanged after a failure.
 *
 * Returns 0. -EINVAL: value is NULL. -ENOENT: the item does not exist (not logged). Otherwise the negative errno
 * of reading the file.
 *
 * @threads safe: as an application's own has to be
 * @blocks up to 20 s: for a writer of the store
 */
DDAL_API int ddal_sysinfo_get_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t *value);

/*
 * Sets one item, adding it if it is missing.
 *
 * Returns 0 or the negative errno of rewriting the file, which is then unchanged.
 *
 * @threads safe: as an application's own has to be
 * @blocks up to 20 s: for the other users of the store
 */
DDAL_API int ddal_sysinfo_set_uint(uint32_t category, uint32_t key, uint32_t key2, uint64_t value);

/*
 * Makes the changed device tree permanent in flash by running /usr/bin/l2u-dtb, and blocks until that has ended. Needs
 * root.
 *
 * Returns 0. DDAL_ERR_FAILURE: the program failed. Otherwise a negative code of _ddal_common_shell_command.
 *
 * @threads one caller at a time: in the whole unit
 * @blocks a program: it writes flash
 */
DDAL_API int ddal_sysinfo_update_devicetree_to_flash(void);

DDAL_END_DECLS

#endif
