/*
 * Main FPGA: 32-bit registers behind /dev/fpga_usr, and the FPGA's RF power meter behind /dev/fpga_rf_pwr and its
 * attributes under /sys/class/fpga_rf_pwr.
 *
 * Every register or setting call opens the file, does one transfer and closes it; no state is kept, so calls may run in
 * parallel from any thread and process. Such a call blocks only as long as the driver's access; ddal_fpga_rf_pwr_wait
 * blocks until the meter delivers a record. Requires read (or read and write) permission on the files.
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
 * Returns 1 (not 0) on success. -EINVAL: value is NULL. -EFAULT: the address is not a multiple of 4. DDAL_ERR_FAILURE:
 * the driver moved fewer than 4 bytes. Otherwise the negative errno of open or read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_fpga_read(uint32_t address, uint32_t *value);

/*
 * Writes one 32-bit register.
 *
 * address: byte offset of the register, a multiple of 4.
 *
 * Returns 1 (not 0) on success. -EFAULT: the address is not a multiple of 4. DDAL_ERR_FAILURE: the driver moved fewer
 * than 4 bytes. Otherwise the negative errno of open or write.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_fpga_write(uint32_t address, uint32_t value);

/*
 * Changes bits of a register, atomically in the driver: register = (register & ~mask) | (value & mask).
 *
 * address: byte offset of the register, a multiple of 4.
 *
 * Returns 0 (not 1) on success. -EFAULT: the address is not a multiple of 4. Otherwise the negative errno of open or of
 * the request.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_fpga_masked_write(uint32_t address, uint32_t mask, uint32_t value);

/*
 * Reads the version word, register 0. Result and output as ddal_fpga_read: 1 on success.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_fpga_get_version(uint32_t *version);

/*
 * Refuses to wait, as this board lacks a data-path alarm channel: returns DDAL_ERR_FAILURE at once.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_fpga_wait_datapath_alarm(void);

/*
 * Reads or writes a setting of the RF power meter: the number of measurement loops or the accumulator range.
 *
 * count, range: the get operations store the number; unchanged after a failure.
 *
 * Return 0 on success. The get operations: -EINVAL: NULL pointer. -EOVERFLOW: the attribute holds more than 32 bits.
 * -ENODATA: it does not hold a number. Otherwise the negative errno of open, read or write.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_fpga_rf_pwr_loop_cnt_set(uint32_t count);
DDAL_API int ddal_fpga_rf_pwr_loop_cnt_get(uint32_t *count);
DDAL_API int ddal_fpga_rf_pwr_accum_range_set(uint32_t range);
DDAL_API int ddal_fpga_rf_pwr_accum_range_get(uint32_t *range);

/*
 * Opens the RF power meter's record channel.
 *
 * fd: receives a descriptor for poll(2) and ddal_fpga_rf_pwr_wait, to be closed with ddal_fpga_rf_pwr_close; unchanged
 *     after a failure.
 *
 * Returns 0 on success. -EINVAL: NULL pointer. Otherwise the negative errno of open.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_fpga_rf_pwr_open(int *fd);

/*
 * Waits for the next measurement record, without a time limit.
 *
 * data: receives 11 numbers: three fields of the record's first word (5, 10 and 10 bits), then its other eight words.
 *       Unchanged after a failure.
 *
 * Returns 0 on success. -EINVAL: data is NULL. -EIO: the channel ended within a record. Otherwise the negative errno of
 * read.
 *
 * @threads safe on different units: descriptors
 * @blocks until a record comes, without a time limit; signals do not end it
 */
DDAL_API int ddal_fpga_rf_pwr_wait(int fd, uint32_t data[11]);

/*
 * Closes the channel. Returns 0 or the negative errno of close, and logs nothing.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_fpga_rf_pwr_close(int fd);

DDAL_END_DECLS

#endif
