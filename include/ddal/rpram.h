/*
 * Start-up state word in the memory that survives a restart, the file /ram/hwapi/isti.
 *
 * Setting it needs write permission under /ram. Calls may run in parallel: a reader sees a whole word or an empty file
 * (-ENODATA) while another writes. A call blocks only as long as the file access does.
 */
#ifndef DDAL_RPRAM_H
#define DDAL_RPRAM_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Reads the word.
 *
 * ignored: has no effect.
 * value:   receives the word, 0 if it was never set; unspecified after a failure.
 *
 * Returns 0 or a negative code of ddal_common_read_u32val.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_kvb_rpram_get_isti(uint32_t ignored, uint32_t *value);

/*
 * Writes the word, creating directory and file as needed.
 *
 * Returns 0 or a negative errno.
 *
 * @threads safe
 * @blocks some accesses
 */
DDAL_API int ddal_kvb_rpram_set_isti(uint32_t value);

DDAL_END_DECLS

#endif
