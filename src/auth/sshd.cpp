// Options, banner and restart of the SSH daemon.
#include <ddal/sshd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "auth/sshd_config.h"
#include "core/atomic_file.h"
#include "core/log.h"
#include "core/program.h"
#include "core/stream.h"

using ddal::core::AtomicFile;
using ddal::core::code_of;
using ddal::core::run_program;

namespace ddal::auth {

namespace {

constexpr const char *kBannerFile = "/etc/ssh/sshd-banner";
constexpr const char *kServiceControl = "/bin/systemctl";
constexpr const char *kService = "sshd.service";

struct Parameter {
    const char *name;
    unsigned long minimum;
    unsigned long maximum;
};

constexpr Parameter kParameters[] = {
    {"ClientAliveInterval", 0, 65535},
    {"ClientAliveCountMax", 1, 255},
};

const Parameter *find_parameter(const char *name)
{
    for (const Parameter &parameter : kParameters)
        if (strcmp(name, parameter.name) == 0)
            return &parameter;
    return nullptr;
}

int is_parameter_valid(const char *name, const char *value)
{
    if (!name)
        return DDAL_ERR_UNKNOWN_PARAMETER;
    if (!value)
        return -EINVAL;
    const Parameter *const parameter = find_parameter(name);
    if (!parameter)
        return DDAL_ERR_UNKNOWN_PARAMETER;

    errno = 0;
    char *end = nullptr;
    const long number = strtol(value, &end, 10);
    if (isspace(static_cast<unsigned char>(value[0])) || errno != 0 || end == value || *end != '\0')
        return log_error(-EINVAL, "Value '%s' for '%s' is not long\n", value, name);
    // The comparison is unsigned, so that negative numbers are above every maximum.
    const auto magnitude = static_cast<unsigned long>(number);
    if (magnitude < parameter->minimum || magnitude > parameter->maximum)
        return log_error(-EINVAL, "Value '%s' for '%s' is out of bounds\n", value, name);
    return 0;
}

const char *printable(const char *text)
{
    return text ? text : "(null)";
}

} // namespace

} // namespace ddal::auth

using namespace ddal::auth;

int ddal_sshd_set_parameter(const char *name, const char *value, uint32_t flags)
{
    const int valid = is_parameter_valid(name, value);
    if (valid != 0)
        return log_error(valid, "Invalid value '%s' for parameter '%s'\n", printable(value), printable(name));
    if (ddal_sshd_update_config(nullptr, name, value) != 0)
        return DDAL_ERR_FAILURE;
    return (flags & DDAL_SSHD_PERSIST) != 0 ? update_persistent_file(name, value) : 0;
}

int ddal_sshd_set_banner(const char *banner_text)
{
    if (!banner_text)
        return log_error(-EINVAL, "banner_text cannot be null\n");
    AtomicFile banner{kBannerFile, "w"};
    if (!banner)
        return log_error(DDAL_ERR_FAILURE, "couldn't open banner file=%s: %m\n", kBannerFile);
    // The commit reports a failed write.
    static_cast<void>(ddal::core::write_stream(banner.writer(), banner_text, strlen(banner_text)));
    const int result = banner.commit();
    if (result != 0)
        return log_error(DDAL_ERR_FAILURE, "Error writing to file=%s: %d\n", kBannerFile, result);
    return 0;
}

int ddal_sshd_restart(void)
{
    log_line(LOG_INFO, "Calling ddal_sshd_restart\n");
    int outcome = run_program(kServiceControl, "reset-failed", kService);
    if (outcome != 0)
        return log_error(code_of(outcome), "Reset failed counter error: %d\n", outcome);
    outcome = run_program(kServiceControl, "restart", kService);
    if (outcome != 0)
        return log_error(code_of(outcome), "Unable to restart sshd service: %d\n", outcome);
    return 0;
}
