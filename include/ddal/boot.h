/*
 * Boot loader: its settings, its diagnostics, its update, and the choice of the Linux installation to boot.
 *
 * Reaches the device-tree nodes /proc/device-tree/uboot (settings) and /proc/device-tree/post (results of the power-on
 * tests), the CPLD attributes scr1 and next_reset, the system-information store (to make a setting permanent) and the
 * programs /bin/update_u-boot.sh, /bin/swap_uboot_partition.sh and /usr/bin/ubootheader. Reading needs read permission
 * on the files, everything else root.
 *
 * Getters do not block beyond the file. Updating the boot loader and switching the partition block until their programs
 * have ended (flash writes, many seconds); making a setting permanent writes flash. Getters may run in parallel;
 * updates and switches must not overlap.
 *
 * Every operation returns 0 or a negative code; an output is unchanged after a failure unless noted. Errors of all
 * getters: the negative errno of the file, -ENODATA for a cell of the wrong size.
 */
#ifndef DDAL_BOOT_H
#define DDAL_BOOT_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Installs a boot-loader image.
 *
 * file: path of the image, not NULL. A path that does not begin with "/ffs" is taken below /ffs.
 *
 * -ENAMETOOLONG: 128 characters or more. DDAL_ERR_FAILURE: the update script failed. Otherwise the negative errno of
 * reaching the file or of starting the script.
 *
 * @threads one caller at a time: updates and switches together, in the whole unit
 * @blocks a program: it writes flash, many seconds
 */
DDAL_API int ddal_boot_update_uboot(const char *file);

/*
 * Reads which copy of the boot loader ran: 0, 1 or 2. -EFAULT: the device tree names another copy.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_uboot_id(uint32_t *id);

/*
 * Reads the version of the boot loader. Both operations are the same.
 *
 * buf: at least 128 bytes; a longer text is cut. Unspecified after a failure.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_uboot_version(char *buf);
DDAL_API int ddal_boot_get_flashed_uboot_version(char *buf);

/*
 * Stores 0 (not an id) when the running Linux installation is the active one, else 1.
 *
 * @threads safe
 * @blocks two accesses
 */
DDAL_API int ddal_boot_get_linux_id(uint32_t *value);

/*
 * Reads the error code of the last start of the boot loader, or of Linux. -EINVAL: not a number.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_uboot_err(uint32_t *code);
DDAL_API int ddal_boot_get_linux_err(uint32_t *code);

/*
 * Reads the partition of the active Linux installation, which a normal reset boots: DDAL_FFS_1 or DDAL_FFS_2 of
 * <ddal/ffs.h>.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_linux_active(uint32_t *partition);

/*
 * Chooses the Linux installation to boot: switches the boot-loader copies where needed, clears the reset-loop count,
 * makes the choice permanent and prepares the next reset.
 *
 * partition: 53 or 54.
 *
 * -EINVAL: another partition, or a boot header that cannot be understood. DDAL_ERR_FAILURE: a program failed. When the
 * headers or the switch fail, the previous choice is put back; later failures undo nothing.
 *
 * @threads one caller at a time: updates and switches together, in the whole unit
 * @blocks programs: four, which write flash, many seconds
 */
DDAL_API int ddal_boot_set_linux_active(uint32_t partition);

/*
 * Reads or writes the number of resets in a row without a good start. The reader gives -EINVAL when the register does
 * not hold a number.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_reset_loop_count(uint32_t *count);
DDAL_API int ddal_boot_set_reset_loop_count(uint32_t count); /* 0 to 255; -EINVAL above */

/*
 * Reads a setting, 0 or 1: boot from the network, serial console, local management port.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_lmp_netboot(uint32_t *on);
DDAL_API int ddal_boot_get_uart(uint32_t *on);
DDAL_API int ddal_boot_get_lmt(uint32_t *on);

/*
 * Changes a setting: 0 is off, any other value is on. Only ddal_boot_set_lmt makes the change permanent, and then
 * returns the result of ddal_sysinfo_update_devicetree_to_flash.
 *
 * @threads safe on different units: settings; ddal_boot_set_lmt: one caller at a time in the whole unit
 * @blocks one access; ddal_boot_set_lmt: a program, which writes flash
 */
DDAL_API int ddal_boot_set_lmp_netboot(uint32_t on);
DDAL_API int ddal_boot_set_uart(uint32_t on);
DDAL_API int ddal_boot_set_lmt(uint32_t on);

/*
 * Reads or writes the mask of CPUs that the scheduler leaves alone. Writing makes it permanent, as ddal_boot_set_lmt
 * does.
 *
 * @threads safe; ddal_boot_set_isolcpus: one caller at a time in the whole unit
 * @blocks one access; ddal_boot_set_isolcpus: a program, which writes flash
 */
DDAL_API int ddal_boot_get_isolcpus(uint32_t *value);
DDAL_API int ddal_boot_set_isolcpus(uint32_t value);

/*
 * Copies the file name of an image of an installation: "uImage" (buf: 7 bytes) or "u-boot.img" (11 bytes).
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_boot_get_image_name(char *buf);
DDAL_API int ddal_boot_get_uboot_name(char *buf);

DDAL_END_DECLS

#endif
