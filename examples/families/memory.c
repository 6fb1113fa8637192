/* Reads a register of the processor through physical memory. */
#include <stdio.h>

#include <ddal/mem.h>

int main(void)
{
    const uint64_t address = 0x02620018; /* the device identification of the system-on-chip */
    const volatile uint32_t *word = ddal_mem_map_addr(address, sizeof *word);

    if (!word)
        return 1;
    printf("0x%llx holds 0x%x\n", (unsigned long long)address, (unsigned)*word);
    return ddal_mem_unmap_addr((void *)word, sizeof *word) == 0 ? 0 : 1;
}
