/*
 * Jitter-cleaner PLL: status through the CPLD's attribute /sys/class/cpld-usr/cpld-usr/jcstat, register writes through
 * the SPI device /dev/spidev2.1.
 *
 * Every call opens the file, does one transfer and closes it; calls may run in parallel from any thread. A write blocks
 * for the SPI transfer. Requires read permission on the attribute, write permission on the device.
 *
 * device: 0, the only one of this board.
 *
 * Return 0 on success, DDAL_ERR_FAILURE on every failure.
 */
#ifndef DDAL_JITTER_CLEANER_H
#define DDAL_JITTER_CLEANER_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads the PLL's status.
 *
 * status: receives the attribute's number; unchanged after a failure.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_jitter_cleaner_stat_read(uint32_t device, int32_t *status);

/*
 * Writes a register of the PLL.
 *
 * value: the low 24 bits are sent, most significant byte first.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_jitter_cleaner_write(uint32_t device, uint32_t value);

DDAL_END_DECLS

#endif
