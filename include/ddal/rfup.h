/*
 * Message channel to the application that runs on the RF card's microcontroller, behind /dev/rfup-usr.
 *
 * Every call opens the device, exchanges one message and closes it; no state is kept, so calls may run in parallel.
 * Blocks as long as the driver's exchange. Requires read and write permission on the device file.
 */
#ifndef DDAL_RFUP_H
#define DDAL_RFUP_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Sends one message and receives its answer.
 *
 * opcode: command of the application; 0 asks for its two-byte status, whose second byte is 0x5A when it is ready.
 * tx_len: bytes at tx. tx_len + rx_len must not exceed 252.
 * tx:     may be NULL when tx_len is 0.
 * rx_len: bytes to receive.
 * rx:     may be NULL when rx_len is 0; filled whether or not the exchange succeeded, with zeros where nothing came.
 *         Unchanged when the call is refused or the device cannot be opened.
 *
 * Returns 0 or DDAL_ERR_FAILURE.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_rfup_msg(uint8_t opcode, uint8_t tx_len, const void *tx, uint8_t rx_len, void *rx);

DDAL_END_DECLS

#endif
