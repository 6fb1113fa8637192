/*
 * Firmware of the RF card's microcontroller: boot-loader link, image files, code-load and upgrade.
 *
 * Reaches the microcontroller's ROM boot loader over the UART /dev/ttyFPGA3, its TEST and RST lines through main FPGA
 * register 0x14, the RF card's power through FPGA register 0x180008, and the running application through
 * /dev/rfup-usr. Requires read and write permission on those devices.
 *
 * One user at a time: bsl_set_uart_speed takes an exclusive hold (an flock(2) of the open UART, which also excludes
 * root and other threads) that lasts until the last close of that open file. bsl_upgrade_up_image has the hold from its
 * start to its end. Another user of the family gets -EBUSY at once, and the log names the process that has the hold. A
 * child that is forked meanwhile shares the open file, and so the hold, until it executes a program or ends.
 *
 * The operations block: each byte is awaited for up to 10 s, a failed reception then listens until the line has been
 * silent for 10 s, a readiness wait takes up to 21 s, and an upgrade lasts minutes. Link timing, packet buffer and
 * image parser are process-wide: use the operations of the link and the parser from one thread at a time.
 *
 * Names take the loader's view: bsl_rx_* writes to the microcontroller, bsl_tx_* reads from it. `fd` is the UART, set
 * up by bsl_set_uart_speed. A `verbose` above 1 traces every byte of the link to the system log.
 */
#ifndef DDAL_BSL_H
#define DDAL_BSL_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Codes of the loader link; 0 is success. They have no text, and bsl_upgrade_up_image never returns them. */
#define BSL_ERR_ACK 0x100u        /* packet rejected, OR-ed with the acknowledgement byte */
#define BSL_ERR_CORE 0x200u       /* command failed, OR-ed with the loader's status byte */
#define BSL_ERR_WRITE 1026u       /* the packet could not be written to the UART */
#define BSL_ERR_TX_TOO_LONG 1027u /* block to write longer than one packet carries */
#define BSL_ERR_READ 1028u        /* a read from the UART returned other than one byte */
#define BSL_ERR_TIMEOUT 1029u     /* no byte within 10 s */
#define BSL_ERR_RX_TOO_LONG 1030u /* block to read longer than one packet carries */
#define BSL_ERR_HEADER 1031u      /* the first byte received was not a packet header */
#define BSL_ERR_CRC 1032u         /* a received packet's CRC did not match */
#define BSL_ERR_PARSE 1033u       /* image could not be parsed or holds no version block */
#define BSL_ERR_FILE 1034u        /* image could not be opened, has no size or is empty */
#define BSL_ERR_RESPONSE 1037u    /* unexpected response type, or a data response of the wrong length */
#define BSL_ERR_PINS 1039u        /* the FPGA write that drives TEST and RST failed */

/* Verdict of bsl_codeload and the step that it reached. */
#define BSL_STATUS_NOT_REQUIRED 0u   /* flash already holds the image; also: not yet decided */
#define BSL_STATUS_SUCCESSFUL 1u     /* programmed and verified */
#define BSL_STATUS_EMPTY 2u          /* image file is empty */
#define BSL_STATUS_NOT_PARSED 4u     /* file is no image, or one without a version block */
#define BSL_STATUS_NOT_READABLE 5u   /* version or CRC of the flash could not be read */
#define BSL_STATUS_ERASE_FAILED 6u   /* flash could not be erased */
#define BSL_STATUS_PROGRAM_FAILED 7u /* flash could not be written */
#define BSL_STATUS_MISMATCH 8u       /* flash differs from the image after programming; bsl_codeload returns 0 */
#define BSL_STATUS_NOT_VERIFIED 12u  /* CRC of the flash could not be read after programming */

/* A packet's payload, or a block of flash contents. */
struct bsl_packet {
    uint16_t length; /* bytes at data */
    uint8_t *data;   /* belongs to the caller */
};

/* One contiguous block of an image. */
struct bsl_record {
    uint32_t address;        /* load address of the first byte */
    uint32_t length;         /* bytes at data */
    uint16_t crc;            /* CRC of the data, as bsl_crc_calc */
    uint8_t *data;           /* belongs to the image */
    struct bsl_record *next; /* in file order; NULL at the end */
    struct bsl_record *prev; /* NULL at the start */
};

/* States of the image parser, as printed in its error line. */
enum bsl_fsm_state {
    BSL_FSM_IDLE = 0,
    BSL_FSM_ADDR_DONE = 1,
    BSL_FSM_LINE_START = 2,
    BSL_FSM_ADDRESS = 3,
    BSL_FSM_DATA = 4,
    BSL_FSM_DONE = 5,
    BSL_FSM_ERROR = 6
};

/*
 * Sets the UART to raw mode, 8 data bits, even parity, one stop bit, and discards the contents of both queues.
 *
 * baud: 1200, 2400, 4800, 9600, 19200, 38400, 57600 or 115200.
 *
 * Returns fd itself on success. Every failure CLOSES fd: -ETIMEDOUT for any other rate, -EBUSY when another user has
 * the hold, -ENETDOWN when the settings cannot be read, -ENETUNREACH or -ENETRESET when a speed is refused,
 * -ECONNABORTED when the settings cannot be written.
 *
 * @threads safe on different units: descriptors
 * @blocks some accesses
 */
DDAL_API int bsl_set_uart_speed(int fd, uint32_t baud);

/*
 * Starts the loader by its TEST/RST sequence (about 0.3 s) and discards the contents of both UART queues. Returns 0 or
 * BSL_ERR_PINS.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks up to 0.3 s: the sequence's pauses
 */
DDAL_API uint32_t bsl_entry(int fd, int verbose);

/*
 * Restarts the microcontroller into its application by TEST and RST. Returns 0 or BSL_ERR_PINS.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks up to 0.1 s: the sequence's pauses
 */
DDAL_API uint32_t bsl_reset(int fd, int verbose);

/*
 * Sends one packet and waits for its acknowledgement.
 *
 * packet: payload, command byte first.
 *
 * Returns 0, BSL_ERR_WRITE, BSL_ERR_TIMEOUT, BSL_ERR_READ, or BSL_ERR_ACK OR-ed with the acknowledgement (both UART
 * queues are discarded then).
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks up to 10 s: for the acknowledgement, once the packet is in the UART's queue
 */
DDAL_API uint32_t bsl_tx_pkt(int fd, const struct bsl_packet *packet, int verbose);

/*
 * Receives one packet.
 *
 * packet: data must have room for 65535 bytes, because the sender announces the length; length is filled in. Both are
 *         unspecified after a failure.
 *
 * Returns 0 or a link code; a failure first listens until the line has been silent for 10 s.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_rx_pkt(int fd, struct bsl_packet *packet, int verbose);

/*
 * Receives a packet that must be a message with status 0. Returns 0 or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t get_bsl_resp(int fd, int verbose);

/*
 * Writes one block to erased flash.
 *
 * address: 24-bit address of the first byte.
 * block:   1 to 250 bytes.
 *
 * Returns 0 or a link code; BSL_ERR_TX_TOO_LONG before anything is sent.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_rx_data_blk(int fd, uint32_t address, const struct bsl_packet *block, int verbose);

/*
 * Reads one block of flash.
 *
 * length:      0 to 250 bytes.
 * destination: receives exactly `length` bytes; unchanged after a failure, and when the loader answers with a message
 *              of status 0, which counts as success.
 *
 * Returns 0 or a link code; BSL_ERR_RX_TOO_LONG before anything is sent.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_tx_data_blk(int fd, uint32_t address, uint32_t length, uint8_t *destination, int verbose);

/*
 * Asks the loader for the CRC of a flash range.
 *
 * crc: receives the CRC; unchanged after a failure, and when the loader answers with a message of status 0.
 *
 * Returns 0 or a link code; BSL_ERR_RESPONSE unless exactly two bytes come back.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_crc_check(int fd, uint32_t address, uint16_t length, uint16_t *crc, int verbose);

/*
 * Starts the microcontroller's program at `address`. Waits for the acknowledgement only. Returns 0 or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks up to 10 s: for the acknowledgement
 */
DDAL_API uint32_t bsl_load_pc(int fd, uint32_t address, int verbose);

/*
 * Unlocks the loader.
 *
 * bytes:  password; a wrong one makes the loader erase the whole flash.
 * length: up to 65534 bytes; BSL_ERR_TX_TOO_LONG beyond.
 *
 * Returns 0 or a link code (0x205: wrong password).
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_rx_password(int fd, const uint8_t *bytes, uint16_t length, int verbose);

/*
 * Erases the 512-byte segment that holds `address`. Returns 0 or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_erase_segment(int fd, uint32_t address, int verbose);

/*
 * Unlocks the information memory, or locks it again. Returns 0 or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_toggle_info(int fd, int verbose);

/*
 * Reads the loader's version.
 *
 * buffer: at least 256 bytes; receives as many as the loader sends (four are usual).
 *
 * Returns 0 or a link code; BSL_ERR_RESPONSE for more than 256 bytes.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_tx_bsl_version(int fd, uint8_t *buffer, int verbose);

/*
 * Tells the loader to change its rate. Set the host's side afterwards with bsl_set_uart_speed.
 *
 * baud: 19200, 38400, 57600 or 115200; every other value asks for 9600.
 *
 * Returns 0 or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks up to 10 s: for the acknowledgement
 */
DDAL_API uint32_t bsl_change_baud(int fd, uint32_t baud, int verbose);

/*
 * Writes any number of bytes, in blocks of 250.
 *
 * Returns 0 (also for an empty request) or the code of the first block that failed.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until every block is done; each byte of an answer is awaited for up to 10 s, and after a failure 10 s of
 * silence
 */
DDAL_API uint32_t bsl_rx_data(int fd, uint32_t address, const struct bsl_packet *block, int verbose);

/*
 * Reads any number of bytes, in blocks of 250. Returns 0 (also for an empty request) or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until every block is done; each byte of an answer is awaited for up to 10 s, and after a failure 10 s of
 * silence
 */
DDAL_API uint32_t bsl_tx_data(int fd, uint32_t address, uint32_t length, uint8_t *destination, int verbose);

/*
 * Erases every 512-byte segment that a range touches.
 *
 * length:        bytes from `start`; 0 erases nothing.
 * first_segment: receives the address of the first segment erased, 0 if none; may be NULL.
 * last_address:  receives the address of the last byte erased, 0 if none; may be NULL.
 *
 * Returns 0 or the link code of the segment that failed; the outputs then include that segment.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until every block is done; each byte of an answer is awaited for up to 10 s, and after a failure 10 s of
 * silence
 */
DDAL_API uint32_t bsl_erase(int fd, uint32_t start, uint32_t length, uint32_t *first_segment, uint32_t *last_address,
                            int verbose);

/*
 * Reads the application's 8-byte version block into `buffer`. Returns 0 or a link code.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the answer has come; each byte is awaited for up to 10 s, and after a failure 10 s of silence
 */
DDAL_API uint32_t bsl_tx_app_ver(int fd, uint8_t *buffer, int verbose);

/*
 * Computes CRC-16/CCITT-FALSE: the start value, the value after one more byte, its two halves, and the value of a
 * buffer.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API uint16_t bsl_crc_init(void);
DDAL_API uint16_t bsl_crc_update(uint16_t crc, uint8_t byte);
DDAL_API uint8_t bsl_crc_get_low_byte(uint16_t crc);
DDAL_API uint8_t bsl_crc_get_high_byte(uint16_t crc);
DDAL_API uint16_t bsl_crc_calc(const uint8_t *buf, uint32_t len);

/*
 * Parses an image in TI-TXT format. The records of an earlier parse become invalid.
 *
 * list:      receives the first record; release with bsl_parse_release.
 * version:   receives the application's version block.
 * fd:        image file, read from its current position.
 * file_size: size of the file in bytes.
 *
 * Returns 0, 1 when the image holds no complete version block (list is valid), -1 without memory. A file that cannot be
 * read or is not well-formed is logged, also returns 0, and leaves list and version unchanged: preset both.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks some accesses: reads the whole file
 */
DDAL_API int bsl_parse_file(struct bsl_record **list, uint8_t version[8], int fd, uint32_t file_size);

/*
 * Copies the version block out of a list of records. Returns 0, or 1 (version unchanged) when there is none.
 *
 * @threads safe on different units: lists
 * @blocks none
 */
DDAL_API int bsl_get_file_version(struct bsl_record *list, uint8_t version[8]);

/*
 * Releases the records of bsl_parse_file, which become invalid.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks none
 */
DDAL_API void bsl_parse_release(struct bsl_record *list);

/*
 * Fills a record by hand: address, length, data (not copied) and its CRC; no neighbours.
 *
 * @threads safe on different units: records
 * @blocks none
 */
DDAL_API void bsl_generate_pattern_record(struct bsl_record *record, uint8_t *data, uint32_t address, uint32_t length);

/*
 * Upgrades the microcontroller: power on, enter and unlock the loader, code-load, optionally rewrite the loader,
 * restart into the application and wait for it.
 *
 * path:        image file.
 * upgrade_all: 0: load the application only if version or contents differ; 1: load it in any case and rewrite the
 *              loader; any other value: as 0, and rewrite the loader. A loader whose version cannot be read
 *              counts as 1.
 *
 * Returns 0, -EBUSY when another user has the hold on the UART (the call then has only switched the card's power on),
 * DDAL_ERR_FAILURE on any failure (the log has the cause), or the negative errno of a failed change of the UART's
 * speed, which leaves the microcontroller in its loader. 0 also when the flash differs from the image after
 * programming: see ddal_ext_rfcard_upgrade for the verdict.
 *
 * @threads safe
 * @blocks until the procedure is over; minutes, with single waits of up to 21 s
 */
DDAL_API int bsl_upgrade_up_image(const char *path, int upgrade_all, int verbose);

/*
 * Brings the flash to the contents of an image file, over an unlocked loader: compare, erase, program, verify.
 *
 * status: receives one of BSL_STATUS_*, also after a failure.
 * force:  exactly 1 skips the comparison.
 *
 * Returns 0 or a positive code. 0 with BSL_STATUS_MISMATCH when the flash differs after programming.
 *
 * @threads one caller at a time: of all users of the RF card
 * @blocks until the procedure is over; minutes, with the waits of bsl_rx_data
 */
DDAL_API uint32_t bsl_codeload(int fd, const char *path, uint32_t *status, int force, int verbose);

/*
 * Returns the address of the application's version block on this board type (a value, not a result code).
 *
 * @threads safe
 * @blocks none: but the first call of the process reads the board type
 */
DDAL_API uint32_t bsl_get_up_version_addr(void);

/*
 * Returns the largest range for one bsl_crc_check on this board type, in bytes (a value, not a result code).
 *
 * @threads safe
 * @blocks none: but the first call of the process reads the board type
 */
DDAL_API uint32_t bsl_get_crc_max_length(void);

/*
 * Writes a version block in readable form to the system log, after `prefix`.
 *
 * @threads safe
 * @blocks one access: the system log
 */
DDAL_API void bsl_print_file_version(const char *prefix, const uint8_t version[8]);

/*
 * Writes a hex dump to the system log, 16 bytes a line.
 *
 * @threads safe
 * @blocks some accesses: the system log
 */
DDAL_API void bsl_print_memory(const void *buffer, uint32_t length);

DDAL_END_DECLS

#endif
