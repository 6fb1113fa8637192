/*
 * RP3 links to the radio: the alarm mask in the main FPGA, the alarm channels of its driver, and a snapshot of the
 * links.
 *
 * Reaches /dev/fpga_usr through <ddal/fpga.h>, the attributes rp3_alarm and refab_alarm under
 * /sys/class/fpga_usr/fpga_usr, and for the snapshot /dev/mem and /var/log/kvbinit.log. Needs permission to read and
 * write the device and to read the attributes; the snapshot needs that of the superuser. No state is kept beside the
 * alarm mask itself, and calls may run in parallel from any thread. Nothing blocks longer than a register access, but
 * for the snapshot's log entry, which waits for other processes that write theirs.
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
 * Returns 0 (not 1) on success, -1001 on every failure.
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
 * Returns 0 (not 1) on success, -1001 on every failure; a NULL pointer is not logged.
 *
 * @threads safe
 * @blocks one access
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
 *
 * @threads safe
 * @blocks three accesses; the reference alarm: one
 */
DDAL_API int ddal_rp3_alarm_event_open(int *fd);
DDAL_API int ddal_refab_alarm_event_open(int *fd);

/*
 * Close a channel. The RP3 one also sets the RP3 alarm mask to 0, which disables the alarm for every other user of the
 * channel, in other processes too.
 *
 * Return 0 on success. -1001: the descriptor is that of another file and stays open. -1002: the name of its file could
 * not be found.
 *
 * @threads safe on different units: descriptors
 * @blocks some accesses
 */
DDAL_API int ddal_rp3_alarm_event_close(int fd);
DDAL_API int ddal_refab_alarm_event_close(int fd);

/*
 * Takes a snapshot of the data path between the SoC's antenna interface and the main FPGA: a fixed list of registers,
 * one line of text each, of which two are checked for the bits of a healthy link. A value that is not as expected is
 * logged at information priority: before the links are configured that is normal.
 *
 * event:     label of the log entry; NULL counts as empty.
 * write_log: not 0: append the text, with the local time and the label, to /var/log/kvbinit.log. All processes share
 *            the log; where an entry would take it beyond 102,400 bytes (not counting the time stamp), its oldest
 *            bytes are cut off first.
 * text:      receives the text, at most text_len - 1 characters of it and a NUL; 2048 bytes hold it all. May be NULL.
 *            Unchanged with text_len 0, and when not even the first register can be read.
 * text_len:  size of text in bytes.
 *
 * Returns 0, or -1001 when a register could not be read or a check failed. With write_log the result is that of the
 * logging ALONE: 0 when the entry was written, however the checks went, and -1001 when it was not. (Where the first
 * register cannot be read, nothing is logged and the result is -1001 in either case.)
 *
 * A process that is killed while it writes its entry leaves the semaphore DDAL_RP3_LINK_LOG_SEMAPHORE taken, and every
 * later call with write_log waits for ever. `ddalctl aif unlock` frees it then. A live writer holds an flock(2) of the
 * open log, which the kernel drops with the process: an application that recovers by itself posts the semaphore only
 * while it can lock the log with LOCK_EX | LOCK_NB and the value of the semaphore stays 0 for 1 s.
 *
 * A symbolic link in place of the log is not followed: the call fails.
 *
 * @threads safe
 * @blocks some accesses; with write_log until other processes have written their entries; signals do not end it
 */
DDAL_API int ddal_rp3_validate_aif(const char *event, int write_log, char *text, size_t text_len);

DDAL_END_DECLS

#endif
