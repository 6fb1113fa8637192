/*
 * Flash file systems: the two data file systems on the flash disk, one for each Linux installation.
 *
 * Reaches the partitions /dev/sda1 and /dev/sda2 (to tell their type), the mount table, and the programs
 * /usr/bin/luksapi, /bin/mount, /bin/umount and /sbin/mkfs.ext4. Requires the privilege to mount and to write the disk
 * (root). A call blocks until its programs have ended: formatting and encrypting take many seconds. No locking:
 * operations on one file system must not overlap.
 *
 * A file system is named by its physical id, 53 or 54: partition /dev/sda1 or 2, mapper device /dev/mapper/decrypted1
 * or 2, mount point /ffs/fs1 or 2. For any other id every operation returns -EINVAL.
 *
 * Errors of all operations: DDAL_ERR_FAILURE when a program ran and failed; a negative errno when one could not be
 * started.
 */
#ifndef DDAL_FFS_H
#define DDAL_FFS_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Physical ids. */
#define DDAL_FFS_1 53
#define DDAL_FFS_2 54

/* Logical ids. */
#define DDAL_FFS_OWN 128   /* of the running Linux installation */
#define DDAL_FFS_OTHER 129 /* of the other one */

/* Types. */
#define DDAL_FFS_TYPE_NONE 1
#define DDAL_FFS_TYPE_EXT4 2
#define DDAL_FFS_TYPE_LUKS_EXT4 3

/* Mount states. */
#define DDAL_FFS_NOT_MOUNTED 0
#define DDAL_FFS_READ_ONLY 1
#define DDAL_FFS_READ_WRITE 2

/* Mount flags: bit 0 set mounts read-write, clear read-only. */
#define DDAL_FFS_MOUNT_WRITABLE 1u

/*
 * Reads the type of a file system as text: "luks_ext4" for an encrypted one, otherwise the type found on its partition
 * ("ext4").
 *
 * type: at least 17 bytes, zero-filled by the caller; unchanged after a failure.
 *
 * -ENODEV: the partition does not exist. -ENOMEDIUM: its contents are not recognised. -EMEDIUMTYPE: they are
 * recognised, but their type is unknown. -ENOSPC: a type of more than 16 characters.
 *
 * @threads safe on different units: file systems
 * @blocks a program; then reads the partition
 */
DDAL_API int ddal_ffs_get_fstype(uint32_t id, char *type);

/*
 * Reads the type of a file system as a number.
 *
 * type: receives one of DDAL_FFS_TYPE_*; unchanged after a failure.
 *
 * -EINVAL: type is NULL. DDAL_ERR_FAILURE: the type has no number. Otherwise as ddal_ffs_get_fstype.
 *
 * @threads safe on different units: file systems
 * @blocks a program; then reads the partition
 */
DDAL_API int ddal_ffs_query_fstype(uint32_t id, uint32_t *type);

/*
 * Reports whether a file system is mounted, and whether read-only or writable.
 *
 * state: receives one of DDAL_FFS_NOT_MOUNTED, _READ_ONLY, _READ_WRITE; unchanged after a failure.
 *
 * DDAL_ERR_FAILURE: no mount table, or it cannot be read. -ENOMEM: its entry is too long. -EINVAL: the entry names
 * neither "ro" nor "rw".
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_ffs_is_mounted(uint32_t id, uint32_t *state);

/*
 * Mounts a file system from its mapper device.
 *
 * type:  DDAL_FFS_TYPE_EXT4 or DDAL_FFS_TYPE_LUKS_EXT4; both mount the same way.
 * flags: 0 or DDAL_FFS_MOUNT_WRITABLE.
 *
 * -EINVAL: another type (tested before the id). -EBUSY: mounted already.
 *
 * @threads safe on different units: file systems
 * @blocks a program
 */
DDAL_API int ddal_ffs_mount(uint32_t id, uint32_t type, uint32_t flags);

/*
 * Remounts a mounted file system with other flags. -EINVAL: not mounted.
 *
 * @threads safe on different units: file systems
 * @blocks a program
 */
DDAL_API int ddal_ffs_remount(uint32_t id, uint32_t flags);

/*
 * Unmounts a file system. Returns 0 without doing anything when it is not mounted.
 *
 * @threads safe on different units: file systems
 * @blocks a program
 */
DDAL_API int ddal_ffs_umount(uint32_t id);

/*
 * Formats a file system, converting between plain and encrypted as needed. EVERYTHING ON IT IS LOST. It is unmounted
 * first and left unmounted; a failure half way leaves the disk as the last successful step left it.
 *
 * type: DDAL_FFS_TYPE_EXT4 or DDAL_FFS_TYPE_LUKS_EXT4.
 *
 * -EINVAL: another type (tested before the id). Otherwise the code of the step that failed.
 *
 * @threads safe on different units: file systems
 * @blocks programs: up to seven, many seconds
 */
DDAL_API int ddal_ffs_format(uint32_t id, uint32_t type);

/*
 * Formats a file system with its present type, mounts it read-write and creates the standard directories. EVERYTHING ON
 * IT IS LOST.
 *
 * DDAL_ERR_FAILURE: formatting, mounting or a directory failed. Otherwise as ddal_ffs_query_fstype.
 *
 * @threads safe on different units: file systems
 * @blocks programs: up to nine, many seconds
 */
DDAL_API int ddal_ffs_cleanfs(uint32_t id);

/*
 * Translates a logical id to a physical one.
 *
 * logical:  DDAL_FFS_OWN or DDAL_FFS_OTHER.
 * physical: receives 53 or 54; unchanged after a failure.
 *
 * -EINVAL: another logical id, or physical is NULL. Otherwise the code of ddal_common_linux_id_get.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_ffs_get_physical_by_logical(uint32_t logical, uint32_t *physical);

DDAL_END_DECLS

#endif
