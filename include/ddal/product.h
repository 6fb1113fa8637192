/*
 * Product family of the application's product line.
 *
 * This board belongs to one product, so nothing is stored. Both calls reach nothing and return at once; any thread, no
 * privilege.
 */
#ifndef DDAL_PRODUCT_H
#define DDAL_PRODUCT_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Does nothing. A weak symbol: an application that defines it supplies its own.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API void ddal_product_family_set(uint32_t value);

/*
 * Returns 0 in every case.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_product_family_get(void);

DDAL_END_DECLS

#endif
