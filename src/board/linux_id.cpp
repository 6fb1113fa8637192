// Number of the Linux installation that is running.
#include <ddal/common.h>

#include <cerrno>

#include "core/log.h"

namespace {

constexpr const char *kLinuxIdProperty = "/proc/device-tree/post/linuxid";
constexpr size_t kIdPosition = 2; // the third character

} // namespace

int ddal_common_linux_id_get(uint32_t *id)
{
    if (!id)
        return log_error(-EINVAL, "pointer to ID is null\n");

    char text[kIdPosition + 2] = "";
    const int result = ddal_common_read_string(sizeof text, text, kLinuxIdProperty);
    if (result < 0)
        return log_error(result, "linux ID get error: %d\n", result);

    const int number = text[kIdPosition] - '0';
    *id = static_cast<uint32_t>(number); // kept: stored even if the id is invalid
    if (number != 1 && number != 2)
        return log_error(DDAL_ERR_FAILURE, "invalid linux ID: %d\n", number);
    return 0;
}
