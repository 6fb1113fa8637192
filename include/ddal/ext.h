/*
 * Operations beyond the board family's interface. An application that must also link against another implementation of
 * the interface does without them.
 *
 * RF card: the upgrade of <ddal/bsl.h> with progress and verdict, and its read-only relatives. Devices, privilege,
 * blocking and the one-at-a-time rule are those of <ddal/bsl.h>: each operation has the hold on the UART from its start
 * to its end, and returns -EBUSY at once where another user has it, in this process or another.
 *
 * Switch: the rules of its field processor, with the attachment and privilege of <ddal/eth_switch.h>.
 */
#ifndef DDAL_EXT_H
#define DDAL_EXT_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* The phase of an operation on the RF card. Phases without a byte count say so. */
enum ddal_ext_rfcard_phase {
    DDAL_EXT_RFCARD_ENTER = 0,   /* power, UART, loader entry, unlocking; no bytes */
    DDAL_EXT_RFCARD_COMPARE = 1, /* flash against image, before a decision */
    DDAL_EXT_RFCARD_ERASE = 2,
    DDAL_EXT_RFCARD_PROGRAM = 3,
    DDAL_EXT_RFCARD_VERIFY = 4, /* flash against image, after programming */
    DDAL_EXT_RFCARD_LOADER = 5, /* the application rewrites the loader; no bytes */
    DDAL_EXT_RFCARD_RESTART = 6 /* reset into the application and wait for it; no bytes */
};

/*
 * Reports progress, on the caller's thread, when a phase begins (done 0) and after every transfer. Must not call the
 * library. From the start of DDAL_EXT_RFCARD_ERASE to the end of DDAL_EXT_RFCARD_VERIFY the card holds no complete
 * application: do not end the process there.
 */
typedef void (*ddal_ext_rfcard_progress)(void *context, enum ddal_ext_rfcard_phase phase, uint32_t done,
                                         uint32_t total);

/*
 * Upgrades the card as bsl_upgrade_up_image does, with the same procedure and results, and reports progress and
 * verdict.
 *
 * progress: may be NULL; context is passed on to it.
 * status:   receives the code-load's verdict, one of BSL_STATUS_*; BSL_STATUS_NOT_REQUIRED when the procedure ended
 *           before it, BSL_STATUS_NOT_PARSED also for a file that is not an image, which leaves the card unchanged. May
 *           be NULL.
 *
 * Returns as bsl_upgrade_up_image. 0 alone is not success: it comes with BSL_STATUS_MISMATCH and BSL_STATUS_NOT_PARSED
 * as well.
 *
 * @threads safe
 * @blocks until the procedure is over; minutes, of which no single wait has to be longer than 21 s
 */
DDAL_API int ddal_ext_rfcard_upgrade(const char *path, int upgrade_all, int verbose, ddal_ext_rfcard_progress progress,
                                     void *context, uint32_t *status);

/*
 * Compares the flash with an image file without writing to it. The card is restarted into its application afterwards.
 *
 * identical: receives 1 or 0; unchanged after a failure.
 *
 * Returns 0, -EBUSY, DDAL_ERR_FAILURE (also for an image that cannot be parsed), or the negative errno of a failed
 * change of the UART's speed.
 *
 * @threads safe
 * @blocks until the procedure is over; a minute and more, of which no single wait has to be longer than 21 s
 */
DDAL_API int ddal_ext_rfcard_verify(const char *path, int verbose, ddal_ext_rfcard_progress progress, void *context,
                                    int *identical);

/*
 * Reads the versions of loader and application. The card is restarted into its application afterwards.
 *
 * loader, application: receive the version bytes; unspecified after a failure.
 *
 * Returns as ddal_ext_rfcard_verify.
 *
 * @threads safe
 * @blocks until the procedure is over; seconds, of which no single wait has to be longer than 21 s
 */
DDAL_API int ddal_ext_rfcard_version(uint8_t loader[4], uint8_t application[8], int verbose);

/*
 * Restarts the card into its application and waits until that is ready (up to 21 s).
 *
 * Returns 0, -EBUSY, or DDAL_ERR_FAILURE when the card could not be restarted or did not become ready.
 *
 * @threads safe
 * @blocks up to 22 s: for the application's readiness
 */
DDAL_API int ddal_ext_rfcard_restart(int verbose);

/* What a field of ddal_ext_switch_rule holds that matches everything, or that stands for an action the rule lacks. */
#define DDAL_EXT_SWITCH_NONE UINT32_MAX

/* A rule of the switch's field processor: the frames that it matches and the actions on them. 112 bytes. */
struct ddal_ext_switch_rule {
    uint32_t group;       /* of the field processor */
    uint32_t entry;       /* numbered as <ddal/bcm_open.h> says */
    uint32_t in_port;     /* port of the switch, or DDAL_EXT_SWITCH_NONE */
    uint32_t tagged;      /* 1, 0 or DDAL_EXT_SWITCH_NONE */
    uint32_t ethertype;   /* or DDAL_EXT_SWITCH_NONE */
    uint32_t to_port;     /* the port that the frames are sent to, or DDAL_EXT_SWITCH_NONE */
    uint32_t queue;       /* or DDAL_EXT_SWITCH_NONE */
    uint8_t has_mac;      /* 1: matches the destination address mac */
    uint8_t keeps_pcp;    /* 1 or 0 */
    uint8_t drops;        /* 1 or 0 */
    uint8_t mac[6];       /* in transmission order; 0 without has_mac */
    uint8_t reserved[11]; /* 0 */
    uint32_t in_ports[8]; /* port p is bit p % 32 of word p / 32; all 0 where the rule names no set of ports */
    uint32_t blocked[8];  /* the ports that the frames do not leave by; all 0 where the rule masks none */
};

/*
 * Lists the rules of the switch's field processor, of all groups and of whichever process made them.
 *
 * size: the number of rules that fit, in; the number of rules, out. With -ENOMEM the number that did not fit.
 *
 * Returns 0. -ENOMEM: more rules than fit. DDAL_ERR_FAILURE: a NULL pointer, the switch cannot be opened, or it
 * refused.
 *
 * @threads safe: a rule that changes meanwhile may be listed in part
 * @blocks exchanges: with the switch's service, some for each rule; the first of the process attaches to it
 */
DDAL_API int ddal_ext_switch_rules(struct ddal_ext_switch_rule *list, uint32_t *size);

DDAL_END_DECLS

#endif
