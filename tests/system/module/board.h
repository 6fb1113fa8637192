/* The rig's board: the devices of a real board's kernel drivers, made of memory and the processor's counter. */
#ifndef DDAL_SYSTEM_BOARD_H
#define DDAL_SYSTEM_BOARD_H

/* The frame device, its page and the pulse per second. */
int frame_start(void);
void frame_stop(void);

/* The register devices. */
int registers_start(void);
void registers_stop(void);

/* The nodes below /sys. */
int attributes_start(void);
void attributes_stop(void);

#endif
