// Status and register of the jitter-cleaner PLL.
#include <ddal/jitter_cleaner.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "platform/clock_devices.h"

using ddal::core::UniqueFd;
using namespace ddal::platform;

namespace {

constexpr uint32_t kOnlyDevice = 0;
constexpr size_t kNumberTextSize = 32;

// Reads one signed decimal number. Returns false with errno if there is none.
bool read_number(int fd, int32_t *number)
{
    char text[kNumberTextSize];
    const ssize_t length = ddal_common_read_all(fd, text, sizeof text - 1);
    if (length < 0)
        return false;
    text[length] = '\0';

    errno = 0;
    char *end;
    const long long value = strtoll(text, &end, 10);
    if (end == text)
        errno = ENODATA;
    else if (value < INT32_MIN || value > INT32_MAX)
        errno = ERANGE;
    if (errno != 0)
        return false;
    *number = static_cast<int32_t>(value);
    return true;
}

} // namespace

int ddal_jitter_cleaner_stat_read(uint32_t device, int32_t *status)
{
    if (device != kOnlyDevice)
        return log_error(DDAL_ERR_FAILURE, "Unknown Error\n");

    const UniqueFd fd{open(kJitterCleanerStatus, O_RDONLY | O_CLOEXEC)};
    if (!fd)
        return log_error(DDAL_ERR_FAILURE, "cannot open %s %m\n", kJitterCleanerStatus);
    if (!read_number(fd.get(), status))
        return log_error(DDAL_ERR_FAILURE, "cannot read %s %m\n", kJitterCleanerStatus);
    return 0;
}

int ddal_jitter_cleaner_write(uint32_t device, uint32_t value)
{
    if (device != kOnlyDevice)
        return log_error(DDAL_ERR_FAILURE, "Unknown Error\n");

    const UniqueFd fd{open(kJitterCleanerNode, O_WRONLY | O_CLOEXEC)};
    if (!fd)
        return log_error(DDAL_ERR_FAILURE, "can't open device %s: %m\n", kJitterCleanerNode);

    const uint8_t bytes[] = {static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 8),
                             static_cast<uint8_t>(value)};
    errno = 0;
    if (ddal_common_write_all(fd.get(), bytes, sizeof bytes) != sizeof bytes)
        return log_error(DDAL_ERR_FAILURE, "can't write to device %s: %m\n", kJitterCleanerNode);
    return 0;
}
