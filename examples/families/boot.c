/* Selects the other Linux installation for the next reset. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/boot.h>
#include <ddal/ffs.h>

int main(void)
{
    char loader[128];
    uint32_t active = 0, other = 0;

    if (ddal_boot_get_uboot_version(loader) != 0 || ddal_boot_get_linux_active(&active) != 0)
        return 1;
    printf("boot loader %s, partition %" PRIu32 " is active\n", loader, active);

    other = active == DDAL_FFS_1 ? DDAL_FFS_2 : DDAL_FFS_1;
    if (ddal_boot_set_linux_active(other) != 0)
        return 1;
    printf("the next reset boots partition %" PRIu32 "\n", other);
    return 0;
}
