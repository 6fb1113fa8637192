/*
 * Result codes.
 *
 * An operation returns 0 (or the success value that its documentation names), a negative errno number of a failed
 * system call, or one of the negative codes below. Pure lookups: any thread, no privilege, nothing blocks.
 */
#ifndef DDAL_ERROR_H
#define DDAL_ERROR_H

#include <stddef.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* General failure that is not a plain system-call error. */
#define DDAL_ERR_FAILURE (-1001)
/* A fault of the system around the library. */
#define DDAL_ERR_SYSTEM (-1002)
/* Something did not happen in time. */
#define DDAL_ERR_TIMEOUT (-1003)

/* FPGA image management. Texts only: no operation of this library returns them. */
#define DDAL_ERR_FPGA_INVALID_FPGA_ID (-1006)
#define DDAL_ERR_FPGA_INVALID_IMAGE_ID (-1007)
#define DDAL_ERR_FPGA_NOT_SUPPORTED (-1008)
#define DDAL_ERR_FPGA_GOLDEN_NOT_ACTIVE (-1009)
#define DDAL_ERR_FPGA_VERSION_MISMATCH (-1010)
#define DDAL_ERR_FPGA_VALIDITY_UNKNOWN (-1011)
#define DDAL_ERR_FPGA_VALIDITY_UNAVAILABLE (-1012)
#define DDAL_ERR_FPGA_IMAGE_EMPTY (-1013)
#define DDAL_ERR_FPGA_IMAGE_MARKED_INVALID (-1014)
#define DDAL_ERR_FPGA_BAD_CRC (-1015)
#define DDAL_ERR_FPGA_NO_DEVICE_TREE (-1016)
#define DDAL_ERR_FPGA_UPDATE_NOT_ACTIVE (-1017)

/* Codes without a text of their own; ddal_strerror gives the system's text of the number. */
#define DDAL_ERR_TRBL_STORE (-1018)         /* ddal_trbl_store */
#define DDAL_ERR_NO_FRAME_INFO (-1021)      /* ddal_sfn_*: the frame driver has no valid frame count */
#define DDAL_ERR_WIFI_SUPPORT (-1022)       /* ddal_devicetree_get_user_defined_a_wifi_support */
#define DDAL_ERR_UNKNOWN_PARAMETER (-1023)  /* ddal_sshd_set_parameter */
#define DDAL_ERR_PASSWORD_REFUSED (-1026)   /* ddal_auth_set_user_password */
#define DDAL_ERR_USER_NOT_SUPPORTED (-1027) /* ddal_auth_*: not one of the service accounts */

/*
 * Writes the text of a result code into buf.
 *
 * code:   any code; every value >= 0 gives "success".
 * buf:    receives at most buflen - 1 characters and a terminating NUL; with buflen 0 nothing is written.
 *
 * Returns 0 in every case. A text longer than the buffer is cut.
 *
 * @threads safe
 * @blocks none
 */
DDAL_API int ddal_strerror(int code, char *buf, size_t buflen);

DDAL_END_DECLS

#endif
