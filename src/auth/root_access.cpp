// Restricted root access: the privileged account logs in only from the unit itself, with a key.
#include <ddal/auth.h>
#include <ddal/common.h>
#include <ddal/sshd.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "auth/accounts.h"
#include "auth/path.h"
#include "auth/sshd_config.h"
#include "core/atboot.h"
#include "core/copy.h"
#include "core/directory.h"
#include "core/log.h"
#include "core/program.h"
#include "core/unique_fd.h"

using ddal::core::code_of;
using ddal::core::run_program;
using ddal::core::UniqueFd;

namespace ddal::auth {

namespace {

constexpr const char *kFlagFile = "/ffs/run/etc/p_restrict_root_access";
constexpr mode_t kFlagFileMode = 0600;
constexpr const char *kRunDirectory = "/var/run/sshd";
constexpr mode_t kRunDirectoryMode = 0755;
constexpr const char *kSkipProperty = "/proc/device-tree/security/skip_passwd_init";
constexpr const char *kKeyTool = "/usr/bin/ssh-keygen";
constexpr const char *kPasswordLockTool = "/usr/bin/passwd";

struct Setting {
    const char *user; // user whose block holds the option; null: global
    const char *name;
    const char *restricted;
    const char *unrestricted;
};

constexpr Setting kSettings[] = {
    {nullptr, "AllowUsers", "toor4qrx@127.0.0.1 toor4qrx@localhost serviceuser@*", "toor4qrx@* serviceuser@*"},
    {kServiceUser, "X11Forwarding", "yes", "no"},
    {kServiceUser, "AllowTcpForwarding", "yes", "no"},
    {kServiceUser, "DisableForwarding", "no", "yes"},
};

// Writes one column of the table; stops at the first failure.
int write_settings(const char *const Setting::*value)
{
    for (const Setting &setting : kSettings) {
        const int result = ddal_sshd_update_config(setting.user, setting.name, setting.*value);
        if (result != 0)
            return result;
    }
    return 0;
}

// Checks the key file. The restriction locks the password, so without valid keys the account could not log in any more.
int ssh_configuration_is_valid()
{
    Path home;
    const int error = find_account(kPrivilegedUser, home.text, sizeof home.text);
    if (error != 0)
        return log_error(error, "%s home directory get error: %d\n", kPrivilegedUser, error);
    Path keys;
    if (!keys.build(home.text, "/.ssh/authorized_keys", ""))
        return log_error(DDAL_ERR_FAILURE, "SSH authorized keys file path set error\n");
    return run_program(kKeyTool, "-lf", keys.text);
}

int create_flag_file()
{
    errno = 0;
    const UniqueFd directory = core::open_directory_of(kFlagFile);
    if (!directory)
        return core::minus_errno();
    UniqueFd flag{open(kFlagFile, O_WRONLY | O_CREAT | O_CLOEXEC, kFlagFileMode)};
    if (!flag || flag.close() != 0)
        return core::minus_errno();
    core::sync_directory(directory.get());
    return 0;
}

int restricted_root_access_disable()
{
    int result = core::remove_file(kFlagFile);
    if (result != 0)
        return log_error(result, "restricted root access flag file remove error: %d\n", result);
    const int outcome = run_program(kPasswordLockTool, "-u", kPrivilegedUser);
    if (outcome != 0)
        return log_error(code_of(outcome), "unlock %s password authentication error: %d\n", kPrivilegedUser, outcome);
    result = write_settings(&Setting::unrestricted);
    if (result != 0)
        return log_error(result, "disable SSH forwarding for serviceuser error: %d\n", result);
    return 0;
}

int restricted_root_access_enable()
{
    int result = ssh_configuration_is_valid();
    if (result != 0)
        return log_error(code_of(result), "%s SSH configuration check error: %d\n", kPrivilegedUser, result);

    if ((result = run_program(kPasswordLockTool, "-l", kPrivilegedUser)) != 0)
        log_line(LOG_ERR, "lock %s password authentication error: %d\n", kPrivilegedUser, result);
    else if ((result = write_settings(&Setting::restricted)) != 0)
        log_line(LOG_ERR, "enable SSH forwarding for serviceuser error: %d\n", result);
    else if ((result = create_flag_file()) != 0)
        log_line(LOG_ERR, "restricted root access flag file create error: %d\n", result);
    else
        return 0;
    static_cast<void>(restricted_root_access_disable()); // logs its failures; the first error is the one to report
    return code_of(result);
}

int create_dir(const char *path, mode_t mode)
{
    struct stat status;
    if (stat(path, &status) == 0) {
        if (!S_ISDIR(status.st_mode))
            return log_error(DDAL_ERR_FAILURE, "Exists, but is not a directory: %s \n", path);
        return 0;
    }
    if (errno != ENOENT || mkdir(path, mode) != 0) {
        const int result = core::minus_errno();
        return log_error(result, "Creating dir %s error: %d \n", path, result);
    }
    return 0;
}

// Reads whether the unit keeps its factory login: a non-zero number leaves the restriction off at start.
int skip_passwd_init(uint64_t *number)
{
    const int result = ddal_kvb_common_read_string_to_u64(number, kSkipProperty, 10);
    if (result == -ENOENT) {
        *number = 0;
        return 0;
    }
    if (result != 0)
        return log_error(result, "reading %s: error: %d\n", kSkipProperty, result);
    return 0;
}

// The live configuration is rebuilt from factory data at every start, before the daemon runs.
int init_restricted_root_access()
{
    int result = create_dir(kRunDirectory, kRunDirectoryMode);
    if (result != 0)
        return result;
    uint32_t state = DDAL_ROOT_ACCESS_UNRESTRICTED;
    result = ddal_auth_get_restricted_root_access_state(&state);
    if (result != 0)
        return result;
    uint64_t skip = 0;
    result = skip_passwd_init(&skip);
    if (result != 0)
        return result;

    const bool restrict = state == DDAL_ROOT_ACCESS_RESTRICTED && skip == 0;
    if (restrict) {
        result = restricted_root_access_enable();
        if (result != 0)
            return log_error(result, "restricted root access enable error: %d\n", result);
    }
    log_line(LOG_INFO, "Resticted root access is %s\n", restrict ? "enabled" : "disabled");
    return 0;
}

DDAL_ATBOOT_HOOK(root_access, init_restricted_root_access, "Init restricted root access")

} // namespace

} // namespace ddal::auth

using namespace ddal::auth;

int ddal_auth_get_restricted_root_access_state(uint32_t *state)
{
    if (!state)
        return log_error(-EINVAL, "state is null\n");
    const bool present = access(kFlagFile, F_OK) == 0;
    if (!present && errno != ENOENT)
        return log_errno("cannot access %s file: %m\n", kFlagFile);
    *state = present ? DDAL_ROOT_ACCESS_RESTRICTED : DDAL_ROOT_ACCESS_UNRESTRICTED;
    return 0;
}

int ddal_auth_set_restricted_root_access_state(uint32_t state)
{
    int result;
    switch (state) {
    case DDAL_ROOT_ACCESS_RESTRICTED:
        result = restricted_root_access_enable();
        if (result != 0)
            return log_error(result, "restricted root access enable error: %d\n", result);
        break;
    case DDAL_ROOT_ACCESS_UNRESTRICTED:
        result = restricted_root_access_disable();
        if (result != 0)
            return log_error(result, "restricted root access disable error: %d\n", result);
        break;
    default: return log_error(-EINVAL, "invalid restricted root access state value: %d\n", static_cast<int>(state));
    }
    result = ddal_sshd_restart();
    if (result != 0)
        return log_error(result, "SSHD service restart error: %d\n", result);
    return 0;
}

int ddal_auth_reset_user_ssh_keys(const char *user)
{
    if (!user)
        return log_error(-EINVAL, "username is null\n");
    if (!is_supported_user(user))
        return log_error(DDAL_ERR_USER_NOT_SUPPORTED, "user %s is not supported\n", user);

    Path home;
    Path keys;
    if (!home.build("/user/", user, "") || !keys.build(home.text, "/.ssh/authorized_keys", ""))
        return log_error(DDAL_ERR_FAILURE, "%s authorized keys path prepare error\n", user);
    Path default_keys;
    if (!default_keys.build("/etc/default/", user, "/ssh/authorized_keys"))
        return log_error(DDAL_ERR_FAILURE, "%s authorized keys default path prepare error\n", user);
    const int result = ddal::core::copy_file_below(default_keys.text, keys.text, strlen(home.text));
    if (result != 0)
        return log_error(DDAL_ERR_FAILURE, "%s authorized keys override error: %d\n", user, result);
    return 0;
}
