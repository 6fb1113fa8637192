/* Changes a block of RF FPGA 0 under the lock, so that other callers never see an incomplete change. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/rf_fpga.h>

int main(void)
{
    const uint32_t address = 0x100;
    uint32_t words[2] = {0x11, 0x22};
    int fd = -1;

    if (ddal_rf_fpga_open(0, &fd) != 0 || ddal_rf_fpga_lock(fd) != 0)
        return 1;
    if (ddal_rf_fpga_write_fd(fd, address, sizeof words, words) != (int)sizeof words) /* returns bytes */
        return 1;
    if (ddal_rf_fpga_unlock(fd) != 0 || ddal_rf_fpga_close(fd) != 0)
        return 1;
    if (ddal_rf_fpga_read(address, 2, words, 0) != 2) /* returns words */
        return 1;
    printf("0x%" PRIx32 " 0x%" PRIx32 "\n", words[0], words[1]);
    return 0;
}
