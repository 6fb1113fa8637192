/*
 * Security mode of the board, from the device tree.
 *
 * Any thread, no privilege; the first call blocks as long as reading the property does.
 */
#ifndef DDAL_SECURITY_H
#define DDAL_SECURITY_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Tells whether the board runs in a secure environment. The first good answer is kept for the life of the process.
 *
 * secure: receives 0 or 1; unchanged after a failure.
 *
 * Returns 0. -EINVAL: secure is NULL. -EFAULT: the property holds neither "0" nor "1". Otherwise a negative code of
 * ddal_common_read_file.
 *
 * @threads safe
 * @blocks one access; none after the first good answer
 */
DDAL_API int ddal_security_is_secure_env(uint32_t *secure);

/*
 * Tells whether the board has a crypto agent.
 *
 * has: receives 1 in every case.
 *
 * Returns 0. -EINVAL: has is NULL.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_security_has_cryptoagent(uint8_t *has);

DDAL_END_DECLS

#endif
