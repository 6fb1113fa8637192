/*
 * Main FPGA: 32-bit registers behind /dev/fpga_usr.
 *
 * Every call opens the device, does one transfer and closes it; no state is kept, so calls may run in parallel from any
 * thread and process. A call blocks only as long as the driver's register access. Needs read (or read and write)
 * permission on the device file.
 *
 * Register addresses are byte offsets and must be multiples of 4.
 */
#ifndef DDAL_FPGA_H
#define DDAL_FPGA_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads one 32-bit register.
 *
 * address: byte offset of the register, a multiple of 4.
 * value:   receives the register; unspecified after a failure.
 *
 * Returns 1 (not 0) on success. -EINVAL: value is NULL. -EFAULT: the address is not a multiple of 4. -1001: the driver
 * moved fewer than 4 bytes. Otherwise the negative errno of open or read.
 */
DDAL_API int ddal_fpga_read(uint32_t address, uint32_t *value);

DDAL_END_DECLS

#endif
