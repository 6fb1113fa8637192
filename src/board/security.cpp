// Security mode of the board.
#include <ddal/security.h>

#include <atomic>
#include <cerrno>
#include <ddal/common.h>

#include "core/log.h"

namespace {

constexpr const char *kSecureProperty = "/proc/device-tree/security/secure_env";
constexpr int kUnknown = -1;

std::atomic<int> g_secure{kUnknown};

} // namespace

int ddal_security_is_secure_env(uint32_t *secure)
{
    if (!secure)
        return log_error(-EINVAL, "error\n");
    if (const int cached = g_secure; cached != kUnknown) {
        *secure = static_cast<uint32_t>(cached);
        return 0;
    }

    char mode[2];
    const int result = ddal_common_read_string(sizeof mode, mode, kSecureProperty);
    if (result < 0)
        return log_error(result, "error\n");
    if (mode[0] != '0' && mode[0] != '1')
        return log_error(-EFAULT, "security mode is undefined\n");
    g_secure = mode[0] - '0';
    *secure = static_cast<uint32_t>(mode[0] - '0');
    return 0;
}

int ddal_security_has_cryptoagent(uint8_t *has)
{
    if (!has)
        return log_error(-EINVAL, "has_cryptoagent is NULL\n");
    *has = 1;
    return 0;
}
