/* Reads the FPGA's version and changes four bits of a register. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/fpga.h>

int main(void)
{
    const uint32_t address = 0x200; /* a multiple of 4 */
    uint32_t version = 0, value = 0;

    if (ddal_fpga_get_version(&version) != 1 || ddal_fpga_write(address, 0x1234) != 1) /* return 1 on success */
        return 1;
    if (ddal_fpga_masked_write(address, 0x00F0, 0x0050) != 0) /* returns 0 on success */
        return 1;
    if (ddal_fpga_read(address, &value) != 1)
        return 1;
    printf("FPGA version 0x%08" PRIx32 ", register 0x%" PRIx32 "\n", version, value);
    return 0;
}
