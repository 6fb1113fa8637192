/*
 * Resets of units of the board.
 *
 * Reaches the same devices as ddal_watchdog_reboot (watchdog.h), with the same privilege and blocking. May run in
 * parallel from any thread.
 */
#ifndef DDAL_RESET_H
#define DDAL_RESET_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Targets. Both stand for the whole unit. */
#define DDAL_RESET_UNIT 0x1010000
#define DDAL_RESET_UNIT_1 0x1010001

/* What to do with a target. */
#define DDAL_RESET_ACTION_RESET 1

/*
 * Resets a target.
 *
 * target: DDAL_RESET_UNIT or DDAL_RESET_UNIT_1.
 * action: DDAL_RESET_ACTION_RESET.
 *
 * Returns the result of ddal_watchdog_reboot. -ENOSYS: any other target or action.
 *
 * @threads safe
 * @blocks a program
 */
DDAL_API int ddal_reset_set(uint32_t target, uint32_t action);

DDAL_END_DECLS

#endif
