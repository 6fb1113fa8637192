/*
 * SSH daemon: global options, login banner, restart.
 *
 * Reaches /etc/ssh/sshd_config and its persistent copy /ffs/run/etc/ssh/p_sshd_config, /etc/ssh/sshd-banner,
 * /usr/sbin/sshd (which checks every edited configuration before it becomes the live one) and /bin/systemctl. Needs
 * root. Each call blocks for as long as the programs it runs, without a time limit, and for at most 20 s for another
 * process that edits the same file, which then fails (auth.h says why). Calls may run in parallel from any thread and
 * process: files are replaced whole, under a lock. No call but ddal_sshd_restart makes a running daemon read its
 * configuration again.
 */
#ifndef DDAL_SSHD_H
#define DDAL_SSHD_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* Flag of ddal_sshd_set_parameter: write the option to the persistent copy as well. */
#define DDAL_SSHD_PERSIST 0x1u

/*
 * Sets one global option of the daemon.
 *
 * name:  "ClientAliveInterval" (0 to 65535 seconds) or "ClientAliveCountMax" (1 to 255).
 * value: the decimal number as text, without blanks around it.
 * flags: 0 or DDAL_SSHD_PERSIST; other bits are ignored.
 *
 * DDAL_ERR_UNKNOWN_PARAMETER: name is NULL or another option. -EINVAL: value is NULL, not a number or out of range.
 * DDAL_ERR_FAILURE: the live configuration could not be replaced (it is the old one then), or the persistent copy could
 * not (the live one is changed then).
 *
 * @threads safe
 * @blocks a program for each file: it checks the new configuration; and up to 20 s for other editors of the file
 */
DDAL_API int ddal_sshd_set_parameter(const char *name, const char *value, uint32_t flags);

/*
 * Replaces the text that the daemon shows before a login.
 *
 * banner_text: the whole text, written as it stands; no newline is added.
 *
 * -EINVAL: banner_text is NULL. DDAL_ERR_FAILURE: the file could not be replaced; it is the old one then.
 *
 * @threads safe
 * @blocks up to 20 s: for other editors of the file
 */
DDAL_API int ddal_sshd_set_banner(const char *banner_text);

/*
 * Clears the service's failure counter and restarts the daemon.
 *
 * DDAL_ERR_FAILURE: systemctl failed; when clearing fails the restart is not tried. Otherwise the negative errno of
 * running systemctl.
 *
 * @threads safe
 * @blocks programs: two
 */
DDAL_API int ddal_sshd_restart(void);

DDAL_END_DECLS

#endif
