/*
 * Board type.
 *
 * Read from the device tree's cell /proc/device-tree/board-identity/board-type on the first call and kept for the life
 * of the process. Requires read permission on the device tree. Does not block. Any thread.
 */
#ifndef DDAL_UNIT_H
#define DDAL_UNIT_H

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Board types. The numbers without a name of their meaning stand for wiring variants of the same board family. */
enum ddal_board_type {
    DDAL_BOARD_TYPE_1 = 1,
    DDAL_BOARD_TYPE_2 = 2,
    DDAL_BOARD_TYPE_3 = 3,
    DDAL_BOARD_TYPE_4 = 4,
    DDAL_BOARD_TYPE_5 = 5, /* without PHY access */
    DDAL_BOARD_TYPE_6 = 6,
    DDAL_BOARD_TYPE_7 = 7,
    DDAL_BOARD_TYPE_8 = 8,
    DDAL_BOARD_TYPE_MBO = 9 /* the board with the Broadcom switch */
};

/*
 * Returns the board type, one of enum ddal_board_type (the cell's value plus one), and not 0, on success.
 * DDAL_ERR_FAILURE: the cell cannot be read or holds 9 or more; every such call logs and reads again.
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
