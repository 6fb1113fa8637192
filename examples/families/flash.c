/* Mounts the other installation's file system for writing, and unmounts it. */
#include <stdio.h>

#include <ddal/ffs.h>

int main(void)
{
    uint32_t id = 0, type = DDAL_FFS_TYPE_NONE, state = DDAL_FFS_NOT_MOUNTED;

    if (ddal_ffs_get_physical_by_logical(DDAL_FFS_OTHER, &id) != 0 || ddal_ffs_query_fstype(id, &type) != 0)
        return 1;
    if (ddal_ffs_mount(id, type, DDAL_FFS_MOUNT_WRITABLE) != 0 || ddal_ffs_is_mounted(id, &state) != 0)
        return 1;
    printf("file system %u is %s\n", (unsigned)id,
           state == DDAL_FFS_READ_WRITE ? "mounted for writing" : "not writable");
    return ddal_ffs_umount(id) == 0 ? 0 : 1;
}
