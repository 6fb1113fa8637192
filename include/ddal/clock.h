/*
 * Clocks that follow the radio frame, and the pulse per second.
 *
 * ddal_clock_gettime makes no system call and never blocks as long as the frame driver delivers. The event wait opens
 * /dev/pps/fpga-pps for the call (read and write permission, and what the kernel asks for setting PPS parameters) and
 * blocks up to its time limit. Both may run in parallel from any thread.
 */
#ifndef DDAL_CLOCK_H
#define DDAL_CLOCK_H

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <ddal/export.h>

struct timespec; /* strict C99 does not declare it in <time.h> */

DDAL_BEGIN_DECLS

/* The only event of this board: the FPGA's pulse per second. */
#define DDAL_CLK_EVENT_PPS 14

/* An event, as the wait returns it; 120 bytes on every target, zero but for the named fields. */
struct ddal_clk_event {
    uint32_t event;         /* DDAL_CLK_EVENT_PPS */
    uint32_t reserved1;     /* 0 */
    uint32_t sequence;      /* running number of the pulse */
    uint32_t reserved2[12]; /* 0 */
    uint32_t sec;           /* time of the pulse: low 32 bits of the seconds */
    uint32_t nsec;          /* nanoseconds of that time */
    uint32_t reserved3[13]; /* 0 */
};

/*
 * Reads a clock, as clock_gettime(2) does, but CLOCK_MONOTONIC and CLOCK_REALTIME advance with the radio frame: they
 * are the driver's time of the frame start plus the processor's count since then.
 *
 * ts: receives the time; unspecified after a failure. tv_nsec may be exactly 1,000,000,000.
 *
 * Every other clock, and these two while the driver gives no frame information, come from the system. Returns 0, or the
 * negative errno of clock_gettime (not -1).
 *
 * @threads safe
 * @blocks none: spins while the driver is writing; a system call for other clocks
 */
DDAL_API int ddal_clock_gettime(clockid_t clockid, struct timespec *ts);

/*
 * Waits for the next event.
 *
 * event:     DDAL_CLK_EVENT_PPS.
 * timeout:   longest time to wait, from now; NULL: no limit. Less than 10 ms is taken as 10 ms.
 * event_out: receives the event; may be NULL; unchanged after a failure.
 *
 * Returns 0 on success. DDAL_ERR_FAILURE: another event. -EOPNOTSUPP: the device has no PPS parameters. -ETIMEDOUT: no
 * pulse in time. -EINTR: a signal came. Otherwise the negative errno of open or of the PPS requests.
 *
 * @threads safe
 * @blocks until the pulse comes or the timeout has passed; a signal ends it
 */
DDAL_API int ddal_clk_event_wait_until(uint32_t event, const struct timespec *timeout,
                                       struct ddal_clk_event *event_out);

DDAL_END_DECLS

#endif
