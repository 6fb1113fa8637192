/* Sets a register of the CPLD and reads it back. */
#include <stdio.h>

#include <ddal/cpld.h>

int main(void)
{
    const uint32_t address = 0x10; /* a multiple of 4 */
    uint8_t value = 0;

    if (ddal_cpld_write(address, 0x5A) != 0 || ddal_cpld_read(address, &value) != 0)
        return 1;
    printf("register 0x%02x holds 0x%02x\n", (unsigned)address, value);
    return 0;
}
