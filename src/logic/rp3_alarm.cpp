// Alarm channels of the main FPGA: attributes that notify when their alarm changes.
#include <ddal/rp3.h>

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "core/descriptor_link.h"
#include "core/log.h"
#include "core/unique_fd.h"
#include "logic/rf_fpga_driver.h"

using ddal::core::DescriptorLink;
using ddal::core::UniqueFd;
using namespace ddal::logic;

namespace {

constexpr size_t kLinkTextSize = 255;

// Closes `fd` if it is the attribute of that name. Logs under the name of the public operation.
int close_attribute(const char *caller, int fd, const char *name)
{
    char path[kLinkTextSize + 1];
    const ssize_t n = readlink(DescriptorLink{fd}.path(), path, kLinkTextSize);
    if (n < 0)
        return log_error_as(caller, DDAL_ERR_SYSTEM, "readlink() failed with val %d\n", static_cast<int>(n));
    path[n] = '\0';

    const char *const slash = strrchr(path, '/');
    if (!slash)
        return log_error_as(caller, DDAL_ERR_SYSTEM, "rindex() failed\n");
    if (strcmp(slash + 1, name) != 0)
        return log_error_as(caller, DDAL_ERR_FAILURE, "file descriptor %d doesn't point to %s\n", fd, name);
    close(fd);
    return 0;
}

} // namespace

int ddal_rp3_alarm_event_open(int *fd)
{
    if (!fd)
        return DDAL_ERR_FAILURE;
    UniqueFd attribute{open(kRp3AlarmAttribute, O_RDONLY | O_CLOEXEC)};
    if (!attribute)
        return log_error(DDAL_ERR_SYSTEM, "Unable to open %s: %m\n", kRp3AlarmAttribute);

    uint32_t mask;
    if (ddal_get_rp3_alarm_mask(&mask) != 0)
        return DDAL_ERR_FAILURE;
    if (mask == 0 && ddal_set_rp3_alarm_mask(kRp3AlarmEnable) != 0)
        return DDAL_ERR_FAILURE;
    *fd = attribute.release();
    return 0;
}

int ddal_rp3_alarm_event_close(int fd)
{
    const int result = close_attribute(__func__, fd, "rp3_alarm");
    if (result == 0)
        ddal_set_rp3_alarm_mask(0);
    return result;
}

int ddal_refab_alarm_event_open(int *fd)
{
    if (!fd)
        return DDAL_ERR_FAILURE;
    UniqueFd attribute{open(kRefabAlarmAttribute, O_RDONLY | O_CLOEXEC)};
    if (!attribute)
        return log_error(DDAL_ERR_SYSTEM, "Unable to open %s: %m\n", kRefabAlarmAttribute);
    *fd = attribute.release();
    return 0;
}

int ddal_refab_alarm_event_close(int fd)
{
    return close_attribute(__func__, fd, "refab_alarm");
}
