/*
 * Physically contiguous memory for the DMA engines of the SoC.
 *
 * Reaches /dev/cma and /proc/cma: needs read and write permission on the device. The memory regions are mapped into the
 * process once, by ddal_cma_process_init or ddal_cma_init_once, and stay mapped for its life. Every process of the unit
 * maps the same regions at different virtual addresses; exchange physical addresses between processes.
 *
 * All addresses here are 32-bit words on every host: on a 64-bit one the regions are mapped below 4 GiB.
 *
 * Call one of the two set-up operations before anything else. After it has returned, all operations may run in parallel
 * from any thread. The conversions touch no device and take no lock; the others block only as long as the driver does.
 */
#ifndef DDAL_CMA_H
#define DDAL_CMA_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Kinds of memory. */
#define DDAL_CMA_MSM 1 /* the SoC's multicore shared memory: small, fast */
#define DDAL_CMA_DDR 2

/*
 * Maps the DMA regions, on the first call of the process; later calls, from any thread, return the first one's result.
 *
 * Returns 0, the negative errno of opening or mapping, or DDAL_ERR_FAILURE when the driver lists more than two regions.
 *
 * @threads safe
 * @blocks some accesses; none from the second call on
 */
DDAL_API int ddal_cma_process_init(void);

/*
 * Maps the DMA regions as ddal_cma_process_init does, then has the driver initialise its allocator. Meant for the one
 * process of the unit that starts the radio software: every call reaches the driver.
 *
 * Returns 0, the result of a failed ddal_cma_process_init, or the negative errno of the request.
 *
 * @threads safe
 * @blocks one access; more on the first call
 */
DDAL_API int ddal_cma_init_once(void);

/*
 * Allocates contiguous memory. No operation frees it.
 *
 * mem_type:  DDAL_CMA_MSM or DDAL_CMA_DDR.
 * size:      bytes, not 0. The driver aligns the block.
 * virt_addr: receives the block's address in this process; unchanged when the driver refuses, 0 when the driver's
 *            answer lies in no region.
 *
 * Returns 0. -EINVAL: an argument. -ENOMEM and others: the driver's refusal. -EBADF: the set-up did not succeed.
 *
 * @threads safe: once the set-up has returned
 * @blocks one access
 */
DDAL_API int ddal_cma_alloc(uint32_t mem_type, uint32_t size, uint32_t *virt_addr);

/*
 * Converts a physical address to this process's virtual one.
 *
 * dma_addr:  any byte of a region.
 * virt_addr: receives the address; 0 after -EFAULT.
 *
 * Returns 0. -EINVAL: virt_addr is NULL. -EFAULT: the address lies in no region, or the set-up has not succeeded.
 *
 * @threads safe: once the set-up has returned
 * @blocks none
 */
DDAL_API int ddal_cma_phy_to_virt(uint32_t dma_addr, uint32_t *virt_addr);

/*
 * Converts a virtual address of this process to the physical one. Arguments and results are those of
 * ddal_cma_phy_to_virt.
 *
 * @threads safe: once the set-up has returned
 * @blocks none
 */
DDAL_API int ddal_cma_virt_to_phy(uint32_t virt_addr, uint32_t *dma_addr);

/*
 * Lets user code of this CPU read the performance monitor's counters.
 *
 * Returns 0 or the negative errno of the request (-EBADF: the set-up did not succeed).
 *
 * @threads safe: once the set-up has returned
 * @blocks one access
 */
DDAL_API int ddal_cma_enable_user_pmu(void);

/*
 * Opens the semaphores of the driver adaptation (Osal_startup, see <ddal/osal.h>).
 *
 * Returns 0, or DDAL_ERR_FAILURE when one of them could not be opened.
 *
 * @threads safe
 * @blocks three accesses; none from the second call on
 */
DDAL_API int ddal_ti_lld_ee_startup(void);

DDAL_END_DECLS

#endif
