#include <linux/module.h>

#include "board.h"

static int __init board_init(void)
{
    int result = registers_start();

    if (result)
        return result;
    result = attributes_start();
    if (result)
        goto no_attributes;
    result = frame_start();
    if (result)
        goto no_frame;
    return 0;

no_frame:
    attributes_stop();
no_attributes:
    registers_stop();
    return result;
}

static void __exit board_exit(void)
{
    frame_stop();
    attributes_stop();
    registers_stop();
}

module_init(board_init);
module_exit(board_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Radio frame, pulse per second and registers of an emulated board");
