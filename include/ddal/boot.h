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
 * -ENAMETOOLONG: 128 characters or more. -1001: the update script failed. Otherwise the negative errno of reaching the
 * file or of starting the script.
 *
 * @threads one caller at a time: updates and switches together, in the whole unit
 * @blocks a program: it writes flash, many seconds
 */
DDAL_API int ddal_boot_update_uboot(const char *file);

/*
 * Which copy of the boot loader ran: 0, 1 or 2. -EFAULT: the device tree names none of them.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_uboot_id(uint32_t *id);

/*
 * Version of the boot loader. Both operations are the same.
 *
 * buf: at least 128 bytes; a longer text is cut. Unspecified after a failure.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_uboot_version(char *buf);
DDAL_API int ddal_boot_get_flashed_uboot_version(char *buf);

/*
 * 0 (not an id) when the running Linux installation is the active one, else 1.
 *
 * @threads safe
 * @blocks two accesses
 */
DDAL_API int ddal_boot_get_linux_id(uint32_t *value);

/*
 * Error code of the boot loader's, and of Linux', last start. -EINVAL: not a number.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_uboot_err(uint32_t *code);
DDAL_API int ddal_boot_get_linux_err(uint32_t *code);

/*
 * Partition of the active Linux installation, the one that a normal reset boots: 53 or 54.
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
 * -EINVAL: another partition, or a boot header that cannot be understood. -1001: a program failed. When the headers or
 * the switch fail, the previous choice is put back; later failures undo nothing.
 *
 * @threads one caller at a time: updates and switches together, in the whole unit
 * @blocks programs: four, which write flash, many seconds
 */
DDAL_API int ddal_boot_set_linux_active(uint32_t partition);

/*
 * Resets in a row without a good start. get: -EINVAL when the register shows no number.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_reset_loop_count(uint32_t *count);
DDAL_API int ddal_boot_set_reset_loop_count(uint32_t count); /* 0 to 255; -EINVAL above */

/*
 * Boot from the network, serial console, local management port: 0 or 1.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_boot_get_lmp_netboot(uint32_t *on);
DDAL_API int ddal_boot_get_uart(uint32_t *on);
DDAL_API int ddal_boot_get_lmt(uint32_t *on);

/*
 * Change them: 0 = off, anything else = on. Only ddal_boot_set_lmt makes the change permanent; its result is then that
 * of ddal_sysinfo_update_devicetree_to_flash.
 *
 * @threads safe on different units: settings; ddal_boot_set_lmt: one caller at a time in the whole unit
 * @blocks one access; ddal_boot_set_lmt: a program, which writes flash
 */
DDAL_API int ddal_boot_set_lmp_netboot(uint32_t on);
DDAL_API int ddal_boot_set_uart(uint32_t on);
DDAL_API int ddal_boot_set_lmt(uint32_t on);

/*
 * Mask of the CPUs kept free of the scheduler. Setting it makes it permanent, as ddal_boot_set_lmt does.
 *
 * @threads safe; ddal_boot_set_isolcpus: one caller at a time in the whole unit
 * @blocks one access; ddal_boot_set_isolcpus: a program, which writes flash
 */
DDAL_API int ddal_boot_get_isolcpus(uint32_t *value);
DDAL_API int ddal_boot_set_isolcpus(uint32_t value);

/*
 * File names of the images of an installation: "uImage" (buf: 7 bytes) and "u-boot.img" (11 bytes).
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_boot_get_image_name(char *buf);
DDAL_API int ddal_boot_get_uboot_name(char *buf);

DDAL_END_DECLS

#endif
