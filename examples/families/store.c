/* Counts the starts in a number that survives restarts and updates. */
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>

#include <ddal/sysinfo.h>

int main(void)
{
    uint64_t starts = 0;
    const int result = ddal_sysinfo_get_uint(200, 1, 0, &starts); /* category, key, second key */

    if (result != 0 && result != -ENOENT) /* -ENOENT: the item was never set */
        return 1;
    if (ddal_sysinfo_set_uint(200, 1, 0, starts + 1) != 0)
        return 1;
    printf("start number %" PRIu64 "\n", starts + 1);
    return 0;
}
