/*
 * Operating-system adaptation that newer releases of the queue-manager driver need to link, beyond <ddal/osal.h>.
 * An extension of this library: an application that uses it does not run with a library that lacks it.
 *
 * Any thread, no privilege. The accumulator section blocks until the section is free and is not recursive.
 */
#ifndef DDAL_OSAL_EXT_H
#define DDAL_OSAL_EXT_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Enters or leaves the section around the accumulator functions, between the threads of this process. It is the same
 * mutex as Osal_qmssMtCsEnter and Osal_qmssMtCsExit: the two sections exclude each other and cannot be nested. Enter
 * returns NULL; the handle is ignored.
 *
 * @threads safe: the thread that entered has to exit
 * @blocks until the section is free, without a time limit; signals do not end it; Exit: none
 */
DDAL_API void *Osal_qmssAccCsEnter(void);
DDAL_API void Osal_qmssAccCsExit(void *handle);

/*
 * Issues a full memory barrier: the hardware sees all writes before it earlier than any write after it.
 *
 * queue_id: ignored.
 * desc:     returned unchanged, so that the operation can stand where the driver expects a descriptor conversion.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API void *Osal_qmssMemBarrier(uint32_t queue_id, void *desc);

DDAL_END_DECLS

#endif
