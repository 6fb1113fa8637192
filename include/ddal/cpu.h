/*
 * Clock of the signal processors, from the kernel's clock list under debugfs.
 *
 * Reading debugfs takes root. Any thread; blocks only as long as reading the attribute does.
 */
#ifndef DDAL_CPU_H
#define DDAL_CPU_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads the clock rate.
 *
 * hz: receives the rate in hertz; unchanged after a failure.
 *
 * Returns 0. -ERANGE: the rate does not fit 32 bits. Otherwise a negative code of ddal_kvb_common_read_string_to_u64.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_cpu_get_clk_rate(uint32_t *hz);

DDAL_END_DECLS

#endif
