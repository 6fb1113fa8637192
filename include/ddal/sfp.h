/*
 * SFP modules of the two backhaul cages: identification, diagnostics, control and status lines.
 *
 * Reaches the module memories (two-wire addresses A0h and A2h, lower pages) through the kernel's EEPROM driver or CPLD
 * attributes, and the cage lines through attributes of the CPLD and FPGA drivers under /sys; which file serves which
 * cage follows the board type. Reading needs read permission on those files, setting a control or writing the
 * diagnostics memory needs write permission.
 *
 * Every call opens, uses and closes its file, so calls may run in parallel from any thread and process; the kernel
 * serialises the readers of one module. A call blocks as long as the driver's two-wire transfer does: some
 * milliseconds, or the bus time-out when a module does not answer.
 */
#ifndef DDAL_SFP_H
#define DDAL_SFP_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Cages: the sfpId argument of every operation. */
#define DDAL_SFP_1 0x10008
#define DDAL_SFP_2 0x10009

/* Memories. */
#define DDAL_SFP_MEMORY_ID 0          /* serial identification, two-wire address A0h; read only */
#define DDAL_SFP_MEMORY_DIAGNOSTICS 1 /* diagnostics, two-wire address A2h */

/* Diagnostic quantities and the unit of their value. */
#define DDAL_SFP_DIAG_TEMPERATURE 0 /* degrees Celsius */
#define DDAL_SFP_DIAG_VOLTAGE 1     /* volts */
#define DDAL_SFP_DIAG_TX_BIAS 2     /* milliamperes */
#define DDAL_SFP_DIAG_TX_POWER 3    /* milliwatts */
#define DDAL_SFP_DIAG_RX_POWER 4    /* milliwatts */

/* Status lines. */
#define DDAL_SFP_STATUS_TX_FAULT 0
#define DDAL_SFP_STATUS_RX_LOS 1
#define DDAL_SFP_STATUS_PRESENCE 2

/* Controls, and the values that each reads as (and, where it can be set, accepts). */
#define DDAL_SFP_CTRL_TX_DISABLE 0         /* 0, 1; can be set */
#define DDAL_SFP_CTRL_POWER_LEVEL 1        /* 2, 3 */
#define DDAL_SFP_CTRL_RATE_SELECT 2        /* 10, 11; can be set */
#define DDAL_SFP_CTRL_RATE_SELECT_0 3      /* 10, 11; can be set; the same line as DDAL_SFP_CTRL_RATE_SELECT */
#define DDAL_SFP_CTRL_SOFT_RATE_SELECT 4   /* 10, 11 */
#define DDAL_SFP_CTRL_SOFT_RATE_SELECT_1 5 /* 10, 11 */

/* The values of the rate-select controls. */
#define DDAL_SFP_RATE_SELECT_LOW 10
#define DDAL_SFP_RATE_SELECT_HIGH 11

/*
 * Reads a piece of a module memory.
 *
 * memory: DDAL_SFP_MEMORY_ID or DDAL_SFP_MEMORY_DIAGNOSTICS.
 * offset: first byte, counted from the start of the memory.
 * buffer: receives length bytes; may be partly filled after a failure.
 * length: number of bytes.
 *
 * -EINVAL: unknown cage or memory. -EFAULT: the memory ends before offset + length. Otherwise the negative errno of
 * open or read (an empty cage typically gives -ENXIO or -EIO). Logs nothing.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_memory_read(uint32_t sfpId, uint32_t memory, uint32_t offset, void *buffer, uint32_t length);

/*
 * Writes a piece of the diagnostics memory. Arguments as for reading.
 *
 * -EROFS: memory is DDAL_SFP_MEMORY_ID (whatever the cage). -EINVAL: unknown cage or memory. -EFAULT: fewer than length
 * bytes were taken. Otherwise the negative errno of open or write. Logs nothing.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_memory_write(uint32_t sfpId, uint32_t memory, uint32_t offset, const void *buffer,
                                   uint32_t length);

/*
 * Reads a text of the identification memory as stored, with its padding spaces, and adds a NUL. The NUL is written
 * even when the read fails; the text before it then means nothing. Errors are those of ddal_sfp_memory_read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_vendor_name_get(uint32_t sfpId, char name[17]);
DDAL_API int ddal_sfp_part_number_get(uint32_t sfpId, char number[17]);
DDAL_API int ddal_sfp_revision_get(uint32_t sfpId, char revision[5]);
DDAL_API int ddal_sfp_serial_number_get(uint32_t sfpId, char number[17]);
DDAL_API int ddal_sfp_date_code_get(uint32_t sfpId, char date[9]); /* "YYMMDD" and two characters of the vendor */

/*
 * Reads a single byte of the identification memory. *value is written even when the read fails, without meaning then.
 * Errors are those of ddal_sfp_memory_read.
 *
 * bitrate: nominal rate in units of 100 MBd. Upper and lower limit: margin above and below it, in percent.
 * sff_8472_compliance_code: revision of the diagnostics interface; 0 without diagnostics.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_bitrate_get(uint32_t sfpId, uint32_t *value);
DDAL_API int ddal_sfp_bitrate_upper_rate_limit_get(uint32_t sfpId, uint32_t *value);
DDAL_API int ddal_sfp_bitrate_lower_rate_limit_get(uint32_t sfpId, uint32_t *value);
DDAL_API int ddal_sfp_sff_8472_compliance_code_get(uint32_t sfpId, uint32_t *value);

/*
 * Reads the laser wavelength in nanometres. *value is unchanged after a failure; errors are those of
 * ddal_sfp_memory_read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_wavelength_get(uint32_t sfpId, uint32_t *value);

/*
 * Reads the connector type in the library's numbering: module codes 0 to 12 unchanged, 20h to 22h as 13 to 15, every
 * vendor-specific code (80h and above) as 16, all others as 0.
 *
 * *value is unchanged after a failure; errors are those of ddal_sfp_memory_read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_connector_value_get(uint32_t sfpId, uint32_t *value);

/*
 * Reads the eight raw transceiver compliance bytes. Errors are those of ddal_sfp_memory_read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_compliance_code_get(uint32_t sfpId, uint8_t codes[8]);

/*
 * Lists the bits set in the compliance bytes, ascending. Bit 0 is the least significant bit of codes[7], bit 63 the
 * most significant one of codes[0]. Touches no hardware.
 *
 * list:  receives up to max bit numbers.
 * count: receives how many were stored; unchanged after a failure.
 *
 * Returns -1 (not DDAL_ERR_FAILURE) when more than max bits are set; list then holds the first max of them.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_sfp_interpret_compliance_codes(const uint8_t codes[8], uint32_t *list, int32_t max, uint32_t *count);

/*
 * Returns 1 when bit is set in the compliance bytes, else 0 (also for bits above 63): a value, not a result code.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_sfp_is_compliance_code_set(const uint8_t codes[8], uint8_t bit);

/*
 * Measures one quantity, for modules of internal and of external calibration.
 *
 * diag:  one of DDAL_SFP_DIAG_*.
 * value: receives the bits of an IEEE-754 single-precision number (copy them into a float); unchanged after a failure.
 *
 * DDAL_ERR_FAILURE: the module has no diagnostics, names no calibration, or diag is unknown. Otherwise as
 * ddal_sfp_memory_read.
 *
 * @threads safe
 * @blocks some accesses
 */
DDAL_API int ddal_sfp_diagnostic_get(uint32_t sfpId, uint32_t diag, uint32_t *value);

/*
 * Reads the alarm flags and the warning flags: bytes 112 and 113, and 116 and 117, of the diagnostics memory, the first
 * byte in bits 8 to 15. From bit 15 down: temperature high, low, voltage high, low, bias high, low, transmit power
 * high, low; bits 7 and 6: receive power high, low.
 *
 * *alarms is written even when its read fails; the warnings are not read then and *warnings is unchanged. Errors are
 * those of ddal_sfp_memory_read.
 *
 * @threads safe
 * @blocks two accesses
 */
DDAL_API int ddal_sfp_get_alarm_warning_flags(uint32_t sfpId, uint16_t *alarms, uint16_t *warnings);

/*
 * Reads a control.
 *
 * ctrl:  one of DDAL_SFP_CTRL_*.
 * value: receives one of the two values listed with the control; unchanged after a failure.
 *
 * -ENOSYS: unknown control or cage line. DDAL_ERR_FAILURE: unknown cage, or the line could not be read. -ENODATA,
 * -ERANGE: the line does not hold a number, or one of 256 or more.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_ctrl_get(uint32_t sfpId, uint32_t ctrl, uint32_t *value);

/*
 * Drives a control line.
 *
 * ctrl:  DDAL_SFP_CTRL_TX_DISABLE, DDAL_SFP_CTRL_RATE_SELECT or DDAL_SFP_CTRL_RATE_SELECT_0.
 * value: one of the two values listed with the control.
 *
 * -ENOSYS: a control that cannot be set. -EINVAL: another value. DDAL_ERR_FAILURE: unknown cage, or the line could not
 * be written.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_ctrl_set(uint32_t sfpId, uint32_t ctrl, uint32_t value);

/*
 * Reads a status line.
 *
 * status: one of DDAL_SFP_STATUS_*.
 * value:  receives the number that the line reads as (0 to 255; the drivers give 0 or 1); 0 after a failure.
 *
 * DDAL_ERR_FAILURE: unknown status or cage, or the line could not be read. -ENODATA, -ERANGE: as ddal_sfp_ctrl_get.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_status_get(uint32_t sfpId, uint32_t status, uint32_t *value);

/*
 * Opens a status line for waiting. The descriptor becomes ready for exceptional conditions (POLLPRI) when the line
 * changes; ddal_sfp_status_event_get reads the new value and makes it wait for the next change. Read once after
 * opening.
 *
 * fd: receives the descriptor; give it back with ddal_sfp_status_event_close. Unchanged after a failure.
 *
 * DDAL_ERR_FAILURE: unknown status or cage. DDAL_ERR_SYSTEM: the line cannot be opened.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_status_event_open(uint32_t sfpId, uint32_t status, int32_t *fd);

/*
 * Reads the current value of an opened status line: 0 or 1. Does not wait. *value is unchanged after a failure.
 *
 * DDAL_ERR_FAILURE: the line is empty. -ENODATA: not a number. -ERANGE: neither 0 nor 1. Otherwise the negative errno
 * of the read.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_sfp_status_event_get(int fd, uint32_t *value);

/*
 * Closes the descriptor. Returns 0 or the negative errno of close.
 *
 * @threads safe on different units: descriptors
 * @blocks one access
 */
DDAL_API int ddal_sfp_status_event_close(int fd);

DDAL_END_DECLS

#endif
