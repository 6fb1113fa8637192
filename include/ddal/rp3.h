/*
 * RP3 links to the radio: the alarm mask in the main FPGA, the alarm channels of its driver, and a snapshot of the
 * links.
 *
 * Reaches /dev/fpga_usr through <ddal/fpga.h>, the attributes rp3_alarm and refab_alarm under
 * /sys/class/fpga_usr/fpga_usr, and for the snapshot /dev/mem and DDAL_RP3_LINK_LOG. Requires permission to read and
 * write the device and to read the attributes; the snapshot requires the superuser's. The operations keep no state
 * besides the alarm mask, and calls may run in parallel from any thread. A call blocks for register accesses only,
 * except a snapshot with a log entry, which waits for other processes that write theirs.
 */
#ifndef DDAL_RP3_H
#define DDAL_RP3_H

#include <stddef.h>
#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* The log of link snapshots, and the semaphore that all processes which write to it share. */
#define DDAL_RP3_LINK_LOG "/var/log/kvbinit.log"
#define DDAL_RP3_LINK_LOG_SEMAPHORE "/VALIDATE_RP3_AIF_FILE_SEM"

/*
 * Sets the RP3 alarm mask.
 *
 * Returns 0 (not 1) on success, DDAL_ERR_FAILURE on every failure.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_set_rp3_alarm_mask(uint32_t mask);

/*
 * Reads the RP3 alarm mask.
 *
 * mask: receives the register; unspecified after a failure.
 *
 * Returns 0 (not 1) on success, DDAL_ERR_FAILURE on every failure; a NULL pointer is not logged.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_get_rp3_alarm_mask(uint32_t *mask);

/*
 * Opens the channel of the RP3 link alarm or of the reference alarm. Opening the RP3 channel also enables its alarm: an
 * RP3 alarm mask of 0 becomes 0x01000000; any other mask stays.
 *
 * fd: receives a descriptor of the driver's attribute; unchanged after a failure. Read the attribute once, then wait
 *     with poll(2) for priority input (POLLPRI); after each notification read it again from its start.
 *
 * Return 0 on success. DDAL_ERR_SYSTEM: the attribute could not be opened. DDAL_ERR_FAILURE: NULL pointer (not logged),
 * or the alarm mask could not be read or written.
 *
 * @threads safe
 * @blocks three accesses; the reference alarm: one
 */
DDAL_API int ddal_rp3_alarm_event_open(int *fd);
DDAL_API int ddal_refab_alarm_event_open(int *fd);

/*
 * Closes a channel. Closing the RP3 channel also sets the RP3 alarm mask to 0, which disables the alarm for every other
 * user of the channel, in other processes too.
 *
 * Return 0 on success. DDAL_ERR_FAILURE: the descriptor belongs to another file and stays open. DDAL_ERR_SYSTEM: the
 * name of its file could not be found.
 *
 * @threads safe on different units: descriptors
 * @blocks some accesses
 */
DDAL_API int ddal_rp3_alarm_event_close(int fd);
DDAL_API int ddal_refab_alarm_event_close(int fd);

/*
 * Takes a snapshot of the data path between the SoC's antenna interface and the main FPGA. The snapshot is a fixed list
 * of registers, one line of text each. Two of them are checked for the bits of a healthy link. An unexpected value is
 * logged at information priority: before the links are configured it is normal.
 *
 * event:     label of the log entry; NULL counts as empty.
 * write_log: not 0: append the text, with the local time and the label, to DDAL_RP3_LINK_LOG. All processes share the
 *            log. Before an entry would take it beyond 102,400 bytes (not counting the time stamp), its oldest bytes
 * are cut off. text:      receives the text, at most text_len - 1 characters and a NUL; 2048 bytes hold it all. May be
 * NULL. Unchanged with text_len 0, and when the first register cannot be read. text_len:  size of text in bytes.
 *
 * Returns 0 on success. DDAL_ERR_FAILURE: a register could not be read or a check failed. With write_log the result is
 * that of the logging ALONE: 0 when the entry was written, however the checks went, and DDAL_ERR_FAILURE when it was
 * not. When the first register cannot be read, the call logs nothing and returns DDAL_ERR_FAILURE in either case.
 *
 * A process that is killed while it writes its entry leaves the semaphore DDAL_RP3_LINK_LOG_SEMAPHORE taken, and every
 * later call with write_log waits for ever. `ddalctl aif unlock` then frees it. A live writer holds an flock(2) of the
 * open log, which the kernel drops with the process. An application that recovers without ddalctl posts the semaphore
 * only while it can lock the log with LOCK_EX | LOCK_NB and the value of the semaphore stays 0 for 1 s.
 *
 * The call does not follow a symbolic link in place of the log: it fails.
 *
 * @threads safe
 * @blocks some accesses; with write_log until other processes have written their entries; signals do not end it
 */
DDAL_API int ddal_rp3_validate_aif(const char *event, int write_log, char *text, size_t text_len);

DDAL_END_DECLS

#endif
