/*
 * The two service accounts of the unit, "toor4qrx" (privileged) and "serviceuser": passwords, password policy settings,
 * authorized SSH keys and the restriction of root access.
 *
 * Reaches the account tools (/usr/sbin/updpassword, /usr/sbin/initpassword, /usr/bin/passwd, /usr/bin/ssh-keygen), the
 * PAM password stack, the SSH daemon's configuration and their persistent copies on flash. Requires root. Each call
 * blocks for as long as the programs it runs, without a time limit, and for at most 20 s for another process that edits
 * the same file. Calls may run in parallel from any thread and process: configuration files are replaced whole, under a
 * lock. Setting the restriction changes several files in turn, so only one caller should do that at a time.
 *
 * The lock is an flock(2) of the file, which every user who can read the file can hold. After 20 s the edit therefore
 * fails with -EBUSY, or DDAL_ERR_FAILURE where an operation returns that for every failed edit, and the file is
 * unchanged.
 *
 * A user name is compared exactly. Programs that the calls start inherit standard output and standard error, except
 * where an operation says that it captures the output.
 */
#ifndef DDAL_AUTH_H
#define DDAL_AUTH_H

#include <stdint.h>

#include <ddal/export.h>

DDAL_BEGIN_DECLS

/* States of the restriction of root access. */
#define DDAL_ROOT_ACCESS_RESTRICTED 0
#define DDAL_ROOT_ACCESS_UNRESTRICTED 1

/*
 * Sets the password of a service account through the platform's password tool, which applies the password policy.
 *
 * user:          "toor4qrx" or "serviceuser".
 * password:      the new password, not empty. Handed to the tool through its standard input only.
 * error_msg:     receives the output of the tool, even after success, or the reason of a failure; always terminated
 *                once the arguments are accepted. 256 bytes hold the usual explanations.
 * error_msg_len: size of error_msg in bytes, not 0.
 *
 * -EINVAL: a NULL pointer, a size of 0, an empty password or an account missing from the user database.
 * DDAL_ERR_USER_NOT_SUPPORTED: another user name. DDAL_ERR_PASSWORD_REFUSED: the tool refused; error_msg says why.
 * -ENOSPC or -EFBIG: the tool printed more than error_msg holds; whether it changed the password is then not known.
 * -EPIPE: the tool ended without reading the password. Otherwise the negative errno of starting or feeding the tool.
 *
 * @threads safe on different units: accounts
 * @blocks a program
 */
DDAL_API int ddal_auth_set_user_password(const char *user, const char *password, char *error_msg,
                                         uint32_t error_msg_len);

/*
 * Gives a service account its factory default password and deletes the stored hash of the changed one.
 *
 * user: "toor4qrx" or "serviceuser".
 *
 * -EINVAL: user is NULL. DDAL_ERR_USER_NOT_SUPPORTED: another user name. DDAL_ERR_FAILURE: the tool failed (nothing is
 * deleted then) or the stored hash could not be deleted.
 *
 * @threads safe on different units: accounts
 * @blocks a program
 */
DDAL_API int ddal_auth_reset_user_password(const char *user);

/*
 * Sets how many earlier passwords an account may not use again, now and after every restart.
 *
 * len: number of remembered passwords, any value; 0 also forgets the passwords remembered so far.
 *
 * After a failure the stored number is the old one. -ENODATA: the PAM password stack has no pam_pwhistory line with
 * "remember=". Otherwise a negative errno.
 *
 * @threads safe
 * @blocks up to 20 s: for other editors of each of the two files
 */
DDAL_API int ddal_auth_set_password_history_len(uint32_t len);

/*
 * Stores the delay after a failed SSH login.
 *
 * delay: in the unit of the system's login-failure delay. The operation subtracts 2000000 before it stores the delay,
 *        and stores 0 for a smaller one.
 *
 * Returns 0 or a negative errno; after a failure the stored number is the old one.
 *
 * @threads safe
 * @blocks up to 20 s: for other editors of the file
 */
DDAL_API int ddal_auth_set_login_faildelay(uint32_t delay);

/*
 * Tells whether root access is restricted.
 *
 * state: receives DDAL_ROOT_ACCESS_RESTRICTED (0) or DDAL_ROOT_ACCESS_UNRESTRICTED (1); unchanged after a failure.
 *
 * -EINVAL: state is NULL. Otherwise the negative errno of looking at the flag file.
 *
 * @threads safe
 * @blocks one access
 */
DDAL_API int ddal_auth_get_restricted_root_access_state(uint32_t *state);

/*
 * Restricts root access, or lifts the restriction, and restarts the SSH daemon.
 *
 * While it is restricted the privileged account logs in from the unit itself only, and only with a key; "serviceuser"
 * may forward connections to get there. The mode survives a restart of the unit.
 *
 * state: DDAL_ROOT_ACCESS_RESTRICTED (0) or DDAL_ROOT_ACCESS_UNRESTRICTED (1).
 *
 * Restricting needs an authorized-keys file of the privileged account that ssh-keygen accepts; without one nothing is
 * changed. A later failure rolls back to the unrestricted settings. Lifting stops at its first failure; the flag file
 * is removed first, so that the mode then reads as unrestricted.
 *
 * -EINVAL: another state. DDAL_ERR_FAILURE: a program failed, the key check among them. Otherwise a negative errno.
 * A failure of the final daemon restart leaves the new mode in place.
 *
 * @threads one caller at a time: in the whole unit
 * @blocks programs: eight; and up to 20 s for other editors of each file
 */
DDAL_API int ddal_auth_set_restricted_root_access_state(uint32_t state);

/*
 * Replaces a service account's authorized SSH keys with the factory default.
 *
 * user: "toor4qrx" or "serviceuser".
 *
 * Follows no symbolic link below /user/<user>, and changes no file there: the new file gets its content, owner and mode
 * first and takes the place of the old name at once. Where the user has made a link of the folder .ssh, the call fails.
 *
 * -EINVAL: user is NULL. DDAL_ERR_USER_NOT_SUPPORTED: another user name. DDAL_ERR_FAILURE: the copy failed; the old
 * keys are then still there.
 *
 * @threads safe on different units: accounts
 * @blocks some accesses
 */
DDAL_API int ddal_auth_reset_user_ssh_keys(const char *user);

DDAL_END_DECLS

#endif
