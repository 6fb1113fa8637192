/*
 * Radio frame number and time within the frame.
 *
 * The main FPGA's frame driver (/dev/fpga_frame) publishes the frame count (BCN) once per radio frame of 10 ms; between
 * two frames the processor's counter tells the offset. The system frame number (SFN) is the low 12 bits of the BCN.
 *
 * Loading the library opens the driver; where it is missing, or the processor's counter does not run at 204.8 MHz, the
 * process is aborted. Requires read permission on the device file. ddal_sfn_get and ddal_sfn_get_bcn make no system
 * call and never block (they spin for as long as the driver is writing); the wait operations block until the frame
 * comes. All may run in parallel from any thread.
 *
 * ts: a time of frame start in seconds and nanoseconds; may be NULL.
 *
 * Common to all: DDAL_ERR_NO_FRAME_INFO where the driver has no valid frame count (yet); outputs are unchanged after a
 * failure.
 */
#ifndef DDAL_SFN_H
#define DDAL_SFN_H

#include <stdint.h>
#include <time.h>

#include <ddal/export.h>

struct timespec; /* strict C99 does not declare it in <time.h> */

DDAL_BEGIN_DECLS

/*
 * Reads the current frame count and the time within the frame.
 *
 * bcn:    receives the frame count; may be NULL.
 * offset: receives the time since the start of that frame in units of 1/1,228,800,000 s, 0 to 12,287,999; may be NULL.
 * ts:     receives the monotonic time of the frame start.
 *
 * While the driver stands still, the processor's counter continues the frame count for up to 3.49 s.
 *
 * @threads safe
 * @blocks none: spins while the driver is writing
 */
DDAL_API int ddal_sfn_get_bcn(uint64_t *bcn, uint32_t *offset, struct timespec *ts);

/*
 * Reads the current system frame number.
 *
 * sfn: receives 0 to 4095.
 * ts:  receives the monotonic time of the frame start.
 *
 * -EINVAL: sfn is NULL.
 *
 * @threads safe
 * @blocks none: spins while the driver is writing
 */
DDAL_API int ddal_sfn_get(uint32_t *sfn, struct timespec *ts);

/*
 * Refuses to set the frame number: returns -ENOSYS, or -EINVAL for a number above 4095.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_sfn_set(uint32_t sfn);

/*
 * Waits for the start of the next frame.
 *
 * sfn: receives the frame number after the wait; NULL: nothing is stored, in ts neither.
 * ts:  receives the monotonic time of the frame start.
 * arg: passed to the driver as it is.
 *
 * Otherwise the negative errno of the driver's request (-EINTR: a signal came).
 *
 * @threads safe
 * @blocks until the frame starts: a frame lasts 10 ms, but without a time limit where the driver stands still; a signal
 * ends it
 */
DDAL_API int ddal_sfn_wait_next(uint32_t *sfn, struct timespec *ts, unsigned long arg);

/*
 * Waits for a given frame.
 *
 * sfn: in: the frame number to wait for, out: the frame number after the wait.
 * ts:  receives the monotonic time of the frame start.
 *
 * -EINVAL: sfn is NULL. Otherwise the negative errno of the driver's request (-EINTR: a signal came).
 *
 * @threads safe
 * @blocks until the frame starts: up to 41 s (4096 frames), but without a time limit where the driver stands still; a
 * signal ends it
 */
DDAL_API int ddal_sfn_wait_for(uint32_t *sfn, struct timespec *ts);

/*
 * Waits for the start of the next frame and reports when it began in real time.
 *
 * ts:  receives the real time of the frame start.
 * bcn: receives the frame count; may be NULL.
 * arg: passed to the driver as it is.
 *
 * Otherwise the negative errno of the driver's request (-EINTR: a signal came).
 *
 * @threads safe
 * @blocks until the frame starts: a frame lasts 10 ms, but without a time limit where the driver stands still; a signal
 * ends it
 */
DDAL_API int ddal_sfn_wait_btsrtc_bcn_pair_at_frame(struct timespec *ts, uint64_t *bcn, unsigned long arg);

DDAL_END_DECLS

#endif
