/*
 * RP3 links to the radio: the alarm mask in the main FPGA, and the alarm channels of its driver.
 *
 * Reaches /dev/fpga_usr through <ddal/fpga.h> and the attributes rp3_alarm and refab_alarm under
 * /sys/class/fpga_usr/fpga_usr; needs permission to read and write the device and to read the attributes. No state is
 * kept beside the alarm mask itself, and calls may run in parallel from any thread. Nothing blocks longer than a
 * register access.
 */
#ifndef DDAL_RP3_H
#define DDAL_RP3_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Sets the RP3 alarm mask.
 *
 * Returns 0 (not 1) on success, -1001 on every failure.
 */
DDAL_API int ddal_set_rp3_alarm_mask(uint32_t mask);

/*
 * Reads the RP3 alarm mask.
 *
 * mask: receives the register; unspecified after a failure.
 *
 * Returns 0 (not 1) on success, -1001 on every failure; a NULL pointer is not logged.
 */
DDAL_API int ddal_get_rp3_alarm_mask(uint32_t *mask);

/*
 * Open the channel of the RP3 link alarm and of the reference alarm. The RP3 one also enables the alarm: an RP3 alarm
 * mask of 0 becomes 0x01000000; another mask is left as it is.
 *
 * fd: receives a descriptor of the driver's attribute; unchanged after a failure. Read the attribute once, then wait
 *     with poll(2) for priority input (POLLPRI); after each notification read it again from its start.
 *
 * Return 0 on success. -1002: the attribute could not be opened. -1001: NULL pointer (not logged), or the alarm mask
 * could not be read or written.
 */
DDAL_API int ddal_rp3_alarm_event_open(int *fd);
DDAL_API int ddal_refab_alarm_event_open(int *fd);

/*
 * Close a channel. The RP3 one also sets the RP3 alarm mask to 0, which disables the alarm for every other user of the
 * channel, in other processes too.
 *
 * Return 0 on success. -1001: the descriptor is that of another file and stays open. -1002: the name of its file could
 * not be found.
 */
DDAL_API int ddal_rp3_alarm_event_close(int fd);
DDAL_API int ddal_refab_alarm_event_close(int fd);

DDAL_END_DECLS

#endif
