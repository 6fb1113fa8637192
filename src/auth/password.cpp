// Passwords of the service accounts and the delay after a failed login.
#include <ddal/auth.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "auth/accounts.h"
#include "auth/path.h"
#include "core/atomic_file.h"
#include "core/directory.h"
#include "core/log.h"
#include "core/program.h"
#include "core/stream.h"
#include "core/text.h"
#include "core/unique_stream.h"

using namespace ddal::core;

namespace ddal::auth {

namespace {

constexpr const char *kPasswordTool = "/usr/sbin/updpassword";
constexpr const char *kPasswordResetTool = "/usr/sbin/initpassword";
constexpr const char *kFailDelayFile = "/rom/etc/ssh/ssh_fail_login_delay";
constexpr uint32_t kFailDelayBase = 2000000; // us, which the system adds to the stored delay

// Runs the password tool with streams over the caller's memory. The streams are unbuffered, so that they keep no copy
// of the password. Returns as the program runner does.
int run_password_tool(const char *user, const char *password, char *output, size_t output_size)
{
    const UniqueStream in{fmemopen(const_cast<char *>(password), strlen(password), "r")};
    const UniqueStream out{fmemopen(output, output_size, "w")};
    if (!in || !out)
        return core::minus_errno(-ENOMEM);
    setvbuf(in.get(), nullptr, _IONBF, 0);
    setvbuf(out.get(), nullptr, _IONBF, 0);
    return _ddal_common_shell_command_read_write_fp(in.get(), 0, out.get(), kPasswordTool,
                                                    ArgumentVector{"-u", user}.get());
}

int write_number(const char *path, uint32_t number)
{
    AtomicFile file{path, "w"};
    if (!file)
        return core::minus_errno();
    errno = 0;
    if (core::print_stream(file.writer(), "%" PRIu32 "\n", number) < 0)
        return core::minus_errno();
    return file.commit();
}

} // namespace

} // namespace ddal::auth

using namespace ddal::auth;

int ddal_auth_set_user_password(const char *user, const char *password, char *error_msg, uint32_t error_msg_len)
{
    if (!user || !password || !error_msg || error_msg_len == 0) {
        log_line(LOG_ERR, "argument can't be NULL pointer\n");
        if (error_msg)
            ddal_common_strlcpy(error_msg, "username, password or error_msg is null", error_msg_len);
        return -EINVAL;
    }
    if (!is_supported_user(user)) {
        snprintf(error_msg, error_msg_len, "user %s is not supported", user);
        return DDAL_ERR_USER_NOT_SUPPORTED;
    }
    if (find_account(user, nullptr, 0) != 0) {
        ddal_common_strlcpy(error_msg, "username account does not exist", error_msg_len);
        return log_error(-EINVAL, "user %s does not exist\n", user);
    }
    if (password[0] == '\0') {
        ddal_common_strlcpy(error_msg, "empty password", error_msg_len);
        return -EINVAL;
    }

    error_msg[0] = '\0';
    const int outcome = run_password_tool(user, password, error_msg, error_msg_len);
    error_msg[error_msg_len - 1] = '\0';
    if (outcome == 0)
        return 0;
    log_line(LOG_ERR, "update password failed: %d\n", outcome);
    if (error_msg[0] == '\0')
        ddal_common_strlcpy(error_msg, "password failed policy check", error_msg_len);
    return outcome > 0 ? DDAL_ERR_PASSWORD_REFUSED : outcome;
}

int ddal_auth_reset_user_password(const char *user)
{
    if (!user)
        return log_error(-EINVAL, "username is null\n");
    if (!is_supported_user(user))
        return log_error(DDAL_ERR_USER_NOT_SUPPORTED, "user %s is not supported\n", user);

    Path default_password;
    if (!default_password.build("/etc/default/", user, "/passwd"))
        return log_error(DDAL_ERR_FAILURE, "%s default password path prepare error\n", user);
    const int outcome = run_program(kPasswordResetTool, "-u", user, "-h", default_password.text);
    if (outcome != 0)
        return log_error(DDAL_ERR_FAILURE, "user %s init password error: %d\n", user, outcome);

    Path stored_hash;
    if (!stored_hash.build("/flash/config/", user, "/.passwd"))
        return log_error(DDAL_ERR_FAILURE, "%s hash password path prepare error\n", user);
    const int result = ddal::core::remove_file(stored_hash.text);
    if (result != 0)
        return log_error(DDAL_ERR_FAILURE, "could not delete .passwd for user %s, error: %d\n", user, result);
    return 0;
}

int ddal_auth_set_login_faildelay(uint32_t delay)
{
    const int result = write_number(kFailDelayFile, delay >= kFailDelayBase ? delay - kFailDelayBase : 0);
    if (result == 0)
        return 0;
    errno = -result; // for "%m"
    return log_error(result, "error during writing to %s: %m\n", kFailDelayFile);
}
