/* Writes a block of the digital front end, changes four of its bits and reads it back. */
#include <stdio.h>

#include <ddal/dfe.h>

int main(void)
{
    const uint32_t address = 0x4000;
    const uint8_t block[4] = {0x11, 0x22, 0x33, 0x44};
    const uint8_t value[4] = {0x0F, 0, 0, 0}, mask[4] = {0x0F, 0, 0, 0}; /* value comes first */
    uint8_t back[4];

    if (ddal_dfe_write(DDAL_DFE_CHIP_ID0, address, block, sizeof block) != 0 ||
        ddal_dfe_masked_write(DDAL_DFE_CHIP_ID0, address, value, mask, sizeof value) != 0 ||
        ddal_dfe_read(DDAL_DFE_CHIP_ID0, address, back, sizeof back) != 0)
        return 1;
    printf("%02x %02x %02x %02x\n", back[0], back[1], back[2], back[3]);
    return 0;
}
