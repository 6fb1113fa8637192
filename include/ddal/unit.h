/*
 * Board type.
 *
 * Read from the device tree's cell /proc/device-tree/board-identity/board-type on the first call and kept for the life
 * of the process. Needs read permission on the device tree. Does not block. Any thread.
 */
#ifndef DDAL_UNIT_H
#define DDAL_UNIT_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/*
 * Returns the board type, 1 to 9 (the cell's value plus one), and not 0, on success. DDAL_ERR_FAILURE: the cell cannot
 * be read or holds 9 or more; every such call logs and reads again.
 *
 * @threads safe
 * @blocks one access; none after the first good answer
 */
DDAL_API int ddal_unit_get_board(void);

/*
 * Returns exactly what ddal_unit_get_board returns: the boards of this family have no subtypes.
 *
 * @threads safe
 * @blocks one access; none after the first good answer
 */
DDAL_API int ddal_unit_get_board_subtype(void);

DDAL_END_DECLS

#endif
