/*
 * RF FPGAs: registers, and the event channels of the radio.
 *
 * Reaches /dev/fpga_rf0 to /dev/fpga_rf3 (registers), /dev/fpga_smr and /dev/fpga_usr (slow measurement report) and
 * /dev/fpga_laa* (licensed-assisted access): needs read permission on them, and write permission to write registers or
 * to set the report's period.
 *
 * Device 0 has 32-bit registers at addresses that are multiples of 4; devices 1 to 3 sit behind SPI and have 8-bit
 * registers, one at a time.
 *
 * The one-shot register calls open the device, do one transfer and close it; they may run in parallel from any thread
 * and process. Register calls block only as long as the driver's access, ddal_rf_fpga_lock and
 * ddal_rf_fpga_masked_write_fd also for as long as another process holds the lock. The *_wait operations block until
 * their event comes, without a time limit; each channel has one waiter at a time.
 */
#ifndef DDAL_RF_FPGA_H
#define DDAL_RF_FPGA_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* ---- Registers, one-shot ---- */

/*
 * Reads registers.
 *
 * address: register address; a multiple of 4 for device 0.
 * count:   words to read; 0 is allowed and reaches no device. Devices 1 to 3 take 1 only.
 * buf:     receives count words; unspecified after a failure or beyond the words read.
 * devid:   0 to 3.
 *
 * Returns the number of words read. -EINVAL: buf is NULL, or a count that the device does not take. -EFAULT: the
 * address is not a multiple of 4. Otherwise the negative errno of open, read or the request.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_read(uint32_t address, uint32_t count, uint32_t *buf, uint32_t devid);

/*
 * Writes registers; arguments and results as ddal_rf_fpga_read, with the number of words written.
 *
 * buf: count words; for devices 1 to 3 at most 255 (-EINVAL).
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_write(uint32_t address, uint32_t count, const uint32_t *buf, uint32_t devid);

/*
 * Reads the version word of device 0. Returns 1 on success, otherwise as ddal_rf_fpga_read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_get_version(uint32_t *version);

/*
 * Changes single bits of a register, atomically in the driver: register = (register & ~mask) | (value & mask).
 *
 * Returns 0. -ENODEV: devid above 3. -EFAULT: the address is not a multiple of 4 (device 0). DDAL_ERR_FAILURE: the
 * driver refused. Otherwise the negative errno of open.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_masked_write(uint32_t address, uint32_t mask, uint32_t value, uint32_t devid);

/*
 * Sets or clears one bit of a register, atomically in the driver.
 *
 * bit: 0 to 31; 0 to 7 for devices 1 to 3.
 *
 * Return 0. -EFAULT: the bit does not exist. Otherwise as ddal_rf_fpga_masked_write.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_bit_set(uint32_t address, uint32_t bit, uint32_t devid);
DDAL_API int ddal_rf_fpga_bit_reset(uint32_t address, uint32_t bit, uint32_t devid);

/* ---- Registers, on a device that is kept open ---- */

/*
 * Opens a device for reading and writing.
 *
 * devid: 0 to 3.
 * fd:    receives the descriptor; -1 after every failure.
 *
 * Returns 0. -ENODEV: devid above 3. -EINVAL: fd is NULL. Otherwise the negative errno of open.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_open(uint32_t devid, int *fd);

/*
 * Closes the descriptor. Returns 0 or the negative errno of close.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_close(int fd);

/*
 * Takes or releases the device's lock, which all users of the device share. The lock is advisory: it excludes only
 * callers that take it. It belongs to the open device: threads that share one descriptor, or a descriptor inherited
 * over fork, share the lock as well. A thread that must be excluded opens the device itself. Taking the lock blocks
 * until it is free; signals do not interrupt it. Taking it twice on one descriptor has no further effect.
 *
 * Return 0 or a negative errno.
 *
 * @threads safe on different units: opened devices (a descriptor and its duplicates are one)
 * @blocks until the lock is free, without a time limit; signals do not end it; releasing: none
 */
DDAL_API int ddal_rf_fpga_lock(int fd);
DDAL_API int ddal_rf_fpga_unlock(int fd);

/*
 * Reads or writes a block of bytes.
 *
 * address: byte offset.
 * len:     bytes.
 * buf:     len bytes; unspecified after a failed read.
 *
 * Return the number of bytes moved, less than len at the end of the device. -EINVAL: buf is NULL. Otherwise a negative
 * errno.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_read_fd(int fd, uint32_t address, uint32_t len, void *buf);
DDAL_API int ddal_rf_fpga_write_fd(int fd, uint32_t address, uint32_t len, const void *buf);

/*
 * Changes bits of a block of bytes: byte = (byte & ~clear) | set, for each byte; set bits need not be in clear.
 *
 * Takes the device's lock for the duration and RELEASES it at the end: do not call it while the lock is held on the
 * same descriptor.
 *
 * len:        bytes; 0 is allowed and reaches no device.
 * clear, set: len bytes each.
 *
 * Returns len. -EINVAL: NULL pointer. -ENOSPC: the block reaches beyond the device (nothing is written when the read
 * finds it so). Otherwise a negative errno.
 *
 * @threads safe on different units: opened devices (a descriptor and its duplicates are one)
 * @blocks until the lock is free, without a time limit; then two accesses
 */
DDAL_API int ddal_rf_fpga_masked_write_fd(int fd, uint32_t address, uint32_t len, const uint8_t *clear,
                                          const uint8_t *set);

/* ---- Slow measurement report ---- */

struct ddal_rf_fpga_slow_meas; /* a handle */

/*
 * Opens the report and sets its period.
 *
 * out:       receives the handle, to be closed with ddal_rf_fpga_slow_meas_report_close; unchanged after a failure.
 * period_ms: as ddal_rf_fpga_slow_meas_report_set_period.
 *
 * Returns 0. -EINVAL: out is NULL or the period not valid. Otherwise the negative errno of open, or the results of
 * ddal_rf_fpga_slow_meas_report_set_period.
 *
 * @threads safe
 * @blocks some accesses
 */
DDAL_API int ddal_rf_fpga_slow_meas_report_open(struct ddal_rf_fpga_slow_meas **out, uint32_t period_ms);

/*
 * Waits for the next report.
 *
 * buf: receives two blocks of 32 bytes. The first block is unchanged when its registers could not be read, which is
 *      only logged.
 *
 * Returns 32 on success, less when the second block came short. -EINVAL: NULL pointer. -ENODEV: not a handle.
 * DDAL_ERR_FAILURE: the wait failed or was interrupted by a signal, or a register could not be read.
 *
 * @threads safe on different units: handles
 * @blocks until the next report, without a time limit; a signal ends it
 */
DDAL_API int ddal_rf_fpga_slow_meas_report_wait(struct ddal_rf_fpga_slow_meas *desc, uint8_t buf[64]);

/*
 * Sets the period. A main FPGA of type C5 has a fixed period: the call then returns 0 without a check or a write.
 *
 * period_ms: milliseconds, 100 to 1000 in steps of 100.
 *
 * Returns 0. -EINVAL: NULL handle or the period. -ENODEV: not a handle. DDAL_ERR_FAILURE: the FPGA's version could not
 * be read, or the driver took less than the word. Otherwise the negative errno of the write.
 *
 * @threads safe on different units: handles
 * @blocks two accesses
 */
DDAL_API int ddal_rf_fpga_slow_meas_report_set_period(struct ddal_rf_fpga_slow_meas *desc, uint32_t period_ms);

/*
 * Frees the handle. Returns 0, -EINVAL for NULL, -ENODEV for a pointer that is not a handle.
 *
 * @threads safe on different units: handles
 * @blocks two accesses
 */
DDAL_API int ddal_rf_fpga_slow_meas_report_close(struct ddal_rf_fpga_slow_meas *desc);

/* ---- Licensed-assisted access: record stream ---- */

/* A record of the stream. 52 bytes. */
struct ddal_rf_fpga_laa_record {
    uint32_t word[13]; /* as the FPGA delivers them */
};

/*
 * Opens the stream. fd receives a descriptor for poll(2), -1 after a failure. Returns 0 or a negative errno.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_laa_open(int *fd);

/*
 * Waits for the next record; signals do not interrupt it.
 *
 * record: unchanged after a failure.
 *
 * Returns 0. -EINVAL: record is NULL. -EIO: the stream ended within a record. Otherwise a negative errno.
 *
 * @threads safe on different units: descriptors
 * @blocks until a record comes, without a time limit; signals do not end it
 */
DDAL_API int ddal_rf_fpga_laa_wait(int fd, struct ddal_rf_fpga_laa_record *record);

/*
 * Closes the descriptor. Returns 0 or the negative errno of close.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_laa_close(int fd);

/*
 * ---- Licensed-assisted access: event channels ----
 *
 * The open operations store a channel's descriptor in *out (unchanged after a failure) and return 0, -EINVAL for a NULL
 * pointer, -ENOMEM, or the negative errno of open. Its fd field serves poll(2): for input on pre-scan and DFS channels,
 * for priority input on SAS channels.
 *
 * The close operations take the address of the caller's pointer, free the descriptor and set the pointer to NULL, even
 * when they return the negative errno of close. -EINVAL: one of the two pointers is NULL.
 */

/* A pre-scan channel. */
struct ddal_rf_fpga_laa_prescan {
    int32_t fd;     /* for poll(2) */
    uint32_t index; /* of the channel */
};

/* A DFS channel. */
struct ddal_rf_fpga_laa_dfs {
    int32_t fd;     /* for poll(2) */
    uint32_t event; /* the last event; the channel's index until there is one */
};

/* A SAS channel. */
struct ddal_rf_fpga_laa_sas {
    int32_t fd; /* for poll(2) */
};

/*
 * Opens the pre-scan channel of an index.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_laa_prescan_open(uint32_t index, struct ddal_rf_fpga_laa_prescan **out);

/*
 * Waits for a pre-scan event; signals do not interrupt it.
 *
 * frame_index: receives the event's byte; unchanged after a failure.
 *
 * Returns 0. -EINVAL: NULL pointer. DDAL_ERR_FAILURE: the channel has ended. Otherwise a negative errno.
 *
 * @threads safe on different units: channels
 * @blocks until the event comes, without a time limit; signals do not end it; closing: one access
 */
DDAL_API int ddal_rf_fpga_laa_prescan_wait(struct ddal_rf_fpga_laa_prescan *desc, uint8_t *frame_index);
DDAL_API int ddal_rf_fpga_laa_prescan_close(struct ddal_rf_fpga_laa_prescan **desc);

/*
 * Opens the DFS (radar detection) channel of an index.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_laa_dfs_open(uint32_t index, struct ddal_rf_fpga_laa_dfs **out);

/*
 * Waits for a DFS event and stores it in desc->event, which a failure leaves as it was; signals do not interrupt it.
 *
 * Returns 0. -EINVAL: desc is NULL. DDAL_ERR_FAILURE: the channel has ended, or within an event. Otherwise a negative
 * errno.
 *
 * @threads safe on different units: channels
 * @blocks until the event comes, without a time limit; signals do not end it; closing: one access
 */
DDAL_API int ddal_rf_fpga_laa_dfs_wait(struct ddal_rf_fpga_laa_dfs *desc);
DDAL_API int ddal_rf_fpga_laa_dfs_close(struct ddal_rf_fpga_laa_dfs **desc);

/*
 * Opens the channel of SAS events of one index, or of any received total wideband power.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rf_fpga_laa_sas_open(uint32_t index, struct ddal_rf_fpga_laa_sas **out);
DDAL_API int ddal_rf_fpga_laa_sas_open_any_rtwp(struct ddal_rf_fpga_laa_sas **out);

/*
 * Waits for a SAS event; signals do not interrupt it. Reads nothing: the driver decides how long an event lasts and how
 * many waits it ends.
 *
 * Returns 0. -EINVAL: desc is NULL. -EBADF: its descriptor is not open. -EIO: the channel has ended. Otherwise a
 * negative errno.
 *
 * @threads safe on different units: channels
 * @blocks until the event comes, without a time limit; signals do not end it; closing: one access
 */
DDAL_API int ddal_rf_fpga_laa_sas_wait(struct ddal_rf_fpga_laa_sas *desc);
DDAL_API int ddal_rf_fpga_laa_sas_close(struct ddal_rf_fpga_laa_sas **desc);

DDAL_END_DECLS

#endif
