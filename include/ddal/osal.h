/*
 * Operating-system adaptation of the SoC's low-level drivers: queue manager (qmss), packet DMA (cppi), packet
 * accelerator (pa) and security accelerator (sa). The drivers call these; names and argument lists are theirs.
 *
 * Call Osal_startup (or ddal_ti_lld_ee_startup) before the drivers start, and ddal_cma_process_init before addresses
 * are converted. Every operation may be called from any thread. Failures cannot be reported to the drivers: they are
 * written to the system log and the call returns as if it had succeeded, unless said otherwise.
 *
 * Critical sections come in two kinds. None is recursive, none has a time-out, and what Enter returns or stores is of
 * no meaning to Exit.
 *
 * Between processes: Osal_cppiCs*, Osal_qmssCs*, Osal_saMtCs*. They are the named POSIX semaphores "/OSAL-sem_cppi_cs",
 * "/OSAL-sem_qmss_cs" and "/OSAL-sem_sa_cs", made with mode 0600 by the first process that starts, so that all users
 * must run as the same account.
 *
 * Between threads: Osal_qmssMtCs*, Osal_paMtCs*, Osal_saCs*. They are mutexes of the process.
 *
 * For sa the plain pair is the one between threads and the "Mt" pair the one between processes; for qmss it is the
 * other way round.
 *
 * A process that dies inside a section between processes LEAVES IT LOCKED: a semaphore does not know its owner, and
 * every other process then waits for ever. To recover, stop all processes that use the drivers, remove the
 * semaphores (the files sem.OSAL-sem_cppi_cs, sem.OSAL-sem_qmss_cs and sem.OSAL-sem_sa_cs under /dev/shm) and start the
 * processes again: the first one creates them again, free. Removing them under a running process splits the users in
 * two groups that no longer exclude each other. Posting a semaphore instead lets the others go on, with the hardware
 * queues in the state in which the dead process left them. Repeat the drivers' set-up in either case.
 */
#ifndef DDAL_OSAL_H
#define DDAL_OSAL_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Opens the three semaphores, once per process. Returns 0, or 1 when one of them could not be opened.
 *
 * @threads safe
 * @blocks three accesses; none from the second call on
 */
DDAL_API int Osal_startup(void);

/*
 * Does nothing and returns 0: the semaphores stay open.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int Osal_shutdown(void);

/*
 * Enters or leaves a section between processes. Enter blocks until the section is free; signals do not interrupt it.
 * Enter returns NULL.
 *
 * @threads safe: once Osal_startup has returned
 * @blocks until the section is free, without a time limit; signals do not end it; Exit: none
 */
DDAL_API void *Osal_cppiCsEnter(void);
DDAL_API void Osal_cppiCsExit(void *handle);
DDAL_API void *Osal_qmssCsEnter(void);
DDAL_API void Osal_qmssCsExit(void *handle);
DDAL_API void Osal_saMtCsEnter(uint32_t *key);
DDAL_API void Osal_saMtCsExit(uint32_t key);

/*
 * Enters or leaves a section between threads of this process. `key` is ignored; an Enter that returns a handle returns
 * NULL.
 *
 * @threads safe: the thread that entered has to exit
 * @blocks until the section is free, without a time limit; signals do not end it; Exit: none
 */
DDAL_API void *Osal_qmssMtCsEnter(void);
DDAL_API void Osal_qmssMtCsExit(void *handle);
DDAL_API void Osal_paMtCsEnter(uint32_t *key);
DDAL_API void Osal_paMtCsExit(uint32_t key);
DDAL_API void Osal_saCsEnter(uint32_t *key);
DDAL_API void Osal_saCsExit(uint32_t key);

/*
 * Allocates a heap block. Returns NULL when memory is exhausted. Osal_cppiMalloc adds 63 bytes for the alignment that
 * the packet DMA needs.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API void *Osal_cppiMalloc(uint32_t size);
DDAL_API void *Osal_qmssMalloc(uint32_t size);

/*
 * Frees a block of the matching operation above; `size` is ignored.
 *
 * @threads safe on different units: blocks
 * @blocks none
 */
DDAL_API void Osal_cppiFree(void *block, uint32_t size);
DDAL_API void Osal_qmssFree(void *block, uint32_t size);

/*
 * Writes a line of a driver to the system log at warning priority.
 *
 * @threads safe
 * @blocks one access: the system log
 */
DDAL_API void Osal_cppiLog(char *format, ...) DDAL_PRINTF(1, 2);
DDAL_API void Osal_qmssLog(char *format, ...) DDAL_PRINTF(1, 2);
DDAL_API void Osal_saLog(char *format, ...) DDAL_PRINTF(1, 2);

/*
 * Does nothing: the DMA memory is coherent and needs no cache operation.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API void Osal_cppiBeginMemAccess(void *block, uint32_t size);
DDAL_API void Osal_cppiEndMemAccess(void *block, uint32_t size);
DDAL_API void Osal_qmssBeginMemAccess(void *block, uint32_t size);
DDAL_API void Osal_qmssEndMemAccess(void *block, uint32_t size);
DDAL_API void Osal_paBeginMemAccess(void *block, uint32_t size);
DDAL_API void Osal_paEndMemAccess(void *block, uint32_t size);
DDAL_API void Osal_saBeginMemAccess(void *block, uint32_t size);
DDAL_API void Osal_saEndMemAccess(void *block, uint32_t size);
DDAL_API void Osal_saBeginScAccess(void *block, uint32_t size);
DDAL_API void Osal_saEndScAccess(void *block, uint32_t size);

/*
 * Returns the processor's number, 0, or its byte order, 0 for little endian.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API uint16_t Osal_saGetProcId(void);
DDAL_API int Osal_saGetSysEndianMode(void);

/*
 * Converts an address within the DMA regions. NULL gives NULL; an address outside the regions is logged and gives NULL.
 * Osal_saGetSCPhyAddr converts virtual to physical.
 *
 * @threads safe: once ddal_cma_process_init has returned
 * @blocks none
 */
DDAL_API void *Osal_qmssPhyToVirt(void *addr);
DDAL_API void *Osal_qmssVirtToPhy(void *addr);
DDAL_API void *Osal_saGetSCPhyAddr(void *addr);

/*
 * Converts a descriptor's handle, and for a host descriptor every pointer of its chain (buffer, original buffer, link),
 * in place. A descriptor of another type is left alone; only its handle is converted.
 *
 * mode: ignored.
 * desc: handle, physical for PhyToVirt and virtual for VirtToPhy; its low four bits are the size hint and are kept.
 *       The caller owns every descriptor of the chain for the duration of the call.
 *
 * PhyToVirt stops at the first descriptor with bit 30 of word 2 set, after converting it, and clears the bit.
 *
 * Returns the converted handle; NULL for NULL, and after a pointer that leads out of the regions. Descriptors converted
 * before such a pointer STAY converted. A chain longer than all descriptors that the regions can hold runs in a loop:
 * it ends like an invalid link.
 *
 * @threads safe on different units: descriptor chains; once ddal_cma_process_init has returned
 * @blocks none
 */
DDAL_API void *Osal_qmssConvertDescPhyToVirt(uint32_t mode, void *desc);
DDAL_API void *Osal_qmssConvertDescVirtToPhy(uint32_t mode, void *desc);

DDAL_END_DECLS

#endif
