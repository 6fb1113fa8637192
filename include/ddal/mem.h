/*
 * Physical memory through /dev/mem.
 *
 * Opening /dev/mem takes root. A call blocks only as long as the kernel sets up the mapping. Mapping and unmapping may
 * run in parallel; an address must not be used while or after another thread unmaps it.
 */
#ifndef DDAL_MEM_H
#define DDAL_MEM_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Maps the register space of the system-on-chip, the first 0x2360000 bytes of physical memory, read-only. Every call
 * returns the same address until ddal_unmap_soc.
 *
 * Returns NULL (and logs why) on failure.
 *
 * @threads safe
 * @blocks one access; none from the second call on
 */
DDAL_API void *ddal_map_soc(void);

/*
 * Removes that mapping if there is one. Returns 0 in every case.
 *
 * @threads safe: but no thread may still use the mapping
 * @blocks one access
 */
DDAL_API int ddal_unmap_soc(void);

/*
 * Maps physical memory for reading and writing. Every call creates a new mapping.
 *
 * physical: address of the first byte wanted, with any alignment.
 * size:     bytes wanted; whole pages around them are mapped.
 *
 * Returns the address of the byte at `physical`, or NULL (and logs why) on failure.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API void *ddal_mem_map_addr(uint64_t physical, uint32_t size);

/*
 * Removes a mapping of ddal_mem_map_addr, given the same size.
 *
 * Returns 0. -EINVAL: addr is NULL, or this process never mapped anything with ddal_mem_map_addr. Otherwise the
 * negative errno of munmap.
 *
 * @threads safe on different units: mappings
 * @blocks one access
 */
DDAL_API int ddal_mem_unmap_addr(void *addr, uint32_t size);

DDAL_END_DECLS

#endif
