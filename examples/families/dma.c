/* Allocates memory for the DMA engines and finds its physical address. */
#include <inttypes.h>
#include <stdio.h>

#include <ddal/cma.h>
#include <ddal/osal.h>

int main(void)
{
    uint32_t virt = 0, phys = 0; /* 32-bit addresses, also on a 64-bit host */

    if (ddal_cma_init_once() != 0) /* every other process: ddal_cma_process_init */
        return 1;
    if (ddal_cma_alloc(DDAL_CMA_DDR, 4096, &virt) != 0 || ddal_cma_virt_to_phy(virt, &phys) != 0)
        return 1;
    *(volatile uint32_t *)(uintptr_t)virt = 0xCAFE;
    if (ddal_ti_lld_ee_startup() != 0) /* before the SoC's drivers start */
        return 1;
    Osal_qmssCsEnter(); /* keeps the other processes out, as the driver does */
    printf("a block at 0x%08" PRIx32 "\n", phys);
    Osal_qmssCsExit(NULL);
    return 0;
}
