/*
 * CPLD: 8-bit registers behind /dev/cpld-usr.
 *
 * Every call opens the device, does one transfer and closes it; no state is kept, so calls may run in parallel from any
 * thread and process. A call blocks only as long as the driver's register access. Requires read and write permission on
 * the device file, also for reading.
 *
 * Register addresses are byte offsets and must be multiples of 4.
 */
#ifndef DDAL_CPLD_H
#define DDAL_CPLD_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads one 8-bit register.
 *
 * address: byte offset of the register, a multiple of 4.
 * value:   receives the register; unspecified after a failure.
 *
 * Returns 0 on success. -EINVAL (not -EFAULT): the address is not a multiple of 4. -EFAULT: no register exists at
 * this address. Otherwise the negative errno of open or read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_cpld_read(uint32_t address, uint8_t *value);

/*
 * Writes one 8-bit register.
 *
 * address: byte offset of the register, a multiple of 4.
 * value:   0 to 255.
 *
 * Returns 0 on success. -EINVAL: the address is not a multiple of 4, or the value is above 255. -EFAULT: there is no
 * register at this address. Otherwise the negative errno of open or write.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_cpld_write(uint32_t address, uint32_t value);

DDAL_END_DECLS

#endif
