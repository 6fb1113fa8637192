/*
 * Timers of the FPGA behind /dev/emtimer.
 *
 * ddal_emtimer_config opens the device (read and write permission) and has to come first; before it the other calls
 * return -EBADF. The descriptor belongs to the process and stays open. Each call is one request that blocks as long as
 * the driver does. Calls may run in parallel from any thread. The meaning of the argument words is the driver's.
 * Nothing is logged.
 *
 * Return 0 on success, otherwise the negative errno of open or of the request.
 */
#ifndef DDAL_EMTIMER_H
#define DDAL_EMTIMER_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* A timer's setting, as the driver takes it; the same on every target. */
struct ddal_emtimer_setting {
    uint32_t word[4]; /* meaning: the driver's */
};

/*
 * Opens the device and configures it. Called again, it opens the device anew; the earlier descriptor is closed.
 *
 * @threads safe
 * @blocks two accesses
 */
DDAL_API int ddal_emtimer_config(uint32_t a0, uint32_t a1, uint32_t a2, uint32_t a3, uint32_t a4, uint32_t a5);

/*
 * Creates a timer.
 *
 * setting: NULL: all zeros.
 * id:      receives the timer's identifier; unchanged after a failure.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_emtimer_create(uint32_t a, uint32_t b, const struct ddal_emtimer_setting *setting, uint32_t *id);

/*
 * Changes a timer's setting; NULL: all zeros.
 *
 * @threads safe on different units: timers
 * @blocks one access
 */
DDAL_API int ddal_emtimer_settime(uint32_t id, const struct ddal_emtimer_setting *setting);

/*
 * Destroys a timer. out1, out2: receive the two values that the driver reports; may be NULL; unchanged after a failure.
 *
 * @threads safe on different units: timers
 * @blocks one access
 */
DDAL_API int ddal_emtimer_destroy(uint32_t id, uint32_t *out1, uint32_t *out2);

DDAL_END_DECLS

#endif
