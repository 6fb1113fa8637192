#include <stdio.h>

#include <ddal/fpga.h>

int main(void)
{
    uint32_t version = 0;
    const int result = ddal_fpga_read(0, &version);

    printf("%d 0x%08lx\n", result, (unsigned long)version);
    return result == 1 ? 0 : 1;
}
