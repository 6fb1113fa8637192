/*
 * RP3 links to the radio: the alarm mask in the main FPGA.
 *
 * Each call is one register access of <ddal/fpga.h>: no state is kept, calls may run in parallel, and the same
 * permission on /dev/fpga_usr is needed.
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

DDAL_END_DECLS

#endif
