/* Reads a cell of the device tree, and the output of a program. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/common.h>

int main(void)
{
    uint32_t cores = 0;
    char line[64];

    if (ddal_common_read_u32val(&cores, "/proc/device-tree/cpus/numcores") != 0)
        return 1;
    /* 0: the program succeeded; above 0: its own exit status; below: it could not be run or did not end well */
    if (ddal_common_read_cmd_output(sizeof line, line, "echo from a program") != 0)
        return 1;
    printf("%" PRIu32 " cores, and a line %s", cores, line);
    return 0;
}
