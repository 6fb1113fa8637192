/*
 * Digital front end: a byte-addressed register space behind /dev/dfe.
 *
 * Every call opens the device, locks it, does one transfer and closes it; no state is kept. The lock (flock) excludes
 * all other processes and threads: a call blocks during another transfer. Requires read (or read and write) permission
 * on the device file.
 *
 * chip: DDAL_DFE_CHIP_ID0, the only one of this board.
 */
#ifndef DDAL_DFE_H
#define DDAL_DFE_H

#include <stddef.h>
#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

#define DDAL_DFE_CHIP_ID0 0 /* the board's only one */

/*
 * Reads a block.
 *
 * address: byte offset.
 * buf:     receives len bytes; unspecified after a failure.
 * len:     0 touches nothing and succeeds, after the chip was checked.
 *
 * Returns 0 on success. -ENODEV: another chip. DDAL_ERR_FAILURE: the driver moved fewer bytes. Otherwise the negative
 * errno of open, flock or read.
 *
 * @threads safe
 * @blocks until the other transfers of the unit are done; signals do not end it
 */
DDAL_API int ddal_dfe_read(int chip, uint32_t address, void *buf, size_t len);

/*
 * Writes a block.
 *
 * len: 0 touches nothing and succeeds, whatever the chip (unlike ddal_dfe_read).
 *
 * Returns 0 on success. -ENODEV: another chip. DDAL_ERR_FAILURE: the driver moved fewer bytes. Otherwise the negative
 * errno of open, flock or write.
 *
 * @threads safe
 * @blocks until the other transfers of the unit are done; signals do not end it
 */
DDAL_API int ddal_dfe_write(int chip, uint32_t address, const void *buf, size_t len);

/*
 * Changes bits of a block: reads it, replaces the bits that are set in mask, writes it back. Not atomic: the lock is
 * released between the read and the write.
 *
 * value, mask: len bytes each; value comes before mask (ddal_fpga_masked_write takes them the other way round).
 *
 * Returns 0 on success. -ENOMEM: no memory for a copy of the block. Otherwise as ddal_dfe_read and ddal_dfe_write.
 *
 * @threads safe: but two changes of one block may undo each other
 * @blocks until the other transfers of the unit are done; signals do not end it
 */
DDAL_API int ddal_dfe_masked_write(int chip, uint32_t address, const void *value, const void *mask, size_t len);

DDAL_END_DECLS

#endif
