// Control and status lines of the SFP cages.
#include "sfp/line.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

#include <ddal/sfp.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "sfp/cage.h"

using ddal::core::UniqueFd;

namespace ddal::sfp {

namespace {

constexpr size_t kPathSize = 4096;
constexpr size_t kTextLength = 4;
constexpr unsigned long kLineLimit = 256;

struct Control {
    // An attribute of null means a bit of the diagnostics memory, which cannot be set here.
    const char *attribute;
    uint8_t offset;
    uint8_t length; // bytes to read from there; the bit is in the first
    uint8_t mask;
    uint32_t when_clear;
    uint32_t when_set;
};

// By DDAL_SFP_CTRL_*.
constexpr Control kControls[] = {
    {kSfpTxDisable, 0, 0, 0, 0, 1},
    {nullptr, 118, 2, 0x02, 2, 3},
    {kSfpRateSelect, 0, 0, 0, DDAL_SFP_RATE_SELECT_LOW, DDAL_SFP_RATE_SELECT_HIGH},
    {kSfpRateSelect, 0, 0, 0, DDAL_SFP_RATE_SELECT_LOW, DDAL_SFP_RATE_SELECT_HIGH}, // kept: one line for both
    {nullptr, 110, 1, 0x08, DDAL_SFP_RATE_SELECT_LOW, DDAL_SFP_RATE_SELECT_HIGH},
    {nullptr, 118, 2, 0x08, DDAL_SFP_RATE_SELECT_LOW, DDAL_SFP_RATE_SELECT_HIGH},
};
static_assert(std::size(kControls) == DDAL_SFP_CTRL_SOFT_RATE_SELECT_1 + 1);

constexpr size_t kControlBytes = 2;
static_assert(std::ranges::all_of(kControls, [](const Control &control) { return control.length <= kControlBytes; }));

// Logs under the name of the function that needs the path.
int make_line_path(uint32_t sfpId, const char *attribute, char (&path)[kPathSize], const char *caller)
{
    const SfpCage *cage = find_sfp_cage(sfpId);
    if (!cage)
        return log_error_as(caller, DDAL_ERR_FAILURE, "get_control_path failed\n");
    const int length = snprintf(path, sizeof path, "%s/%s", cage->lines, attribute);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return log_error_as(caller, DDAL_ERR_FAILURE, "could not create full CLASS file path\n");
    return 0;
}

int parse_hexadecimal(const char *text, unsigned long *number)
{
    char *end;
    errno = 0;
    *number = strtoul(text, &end, 16);
    if (errno != 0)
        return -errno;
    return end == text ? -ENODATA : 0;
}

int read_line(uint32_t sfpId, const char *attribute, uint32_t *value)
{
    char text[kTextLength + 1];
    int result = ddal_sfp_read_file(sfpId, attribute, text);
    if (result != 0)
        return result;
    unsigned long number;
    result = parse_hexadecimal(text, &number);
    if (result != 0)
        return result;
    if (number >= kLineLimit)
        return -ERANGE;
    *value = static_cast<uint32_t>(number);
    return 0;
}

// Reads the line or the memory bit behind a control; any non-zero *value means set.
int read_control(uint32_t sfpId, const Control &control, uint32_t *value)
{
    if (control.attribute)
        return read_line(sfpId, control.attribute, value);
    uint8_t bytes[kControlBytes];
    const int result = ddal_sfp_memory_read(sfpId, DDAL_SFP_MEMORY_DIAGNOSTICS, control.offset, bytes, control.length);
    if (result == 0)
        *value = bytes[0] & control.mask;
    return result;
}

} // namespace

int validate_sfp_ctrl_value(uint32_t ctrl, uint32_t value)
{
    if (ctrl >= std::size(kControls) || !kControls[ctrl].attribute)
        return log_error(-ENOSYS, "SFP ctrl 0x%x not supported\n", ctrl);
    const Control &control = kControls[ctrl];
    return value == control.when_clear || value == control.when_set ? 0 : -EINVAL;
}

} // namespace ddal::sfp

using namespace ddal::sfp;

int ddal_sfp_read_file(uint32_t sfpId, const char *attribute, char text[5])
{
    char path[kPathSize];
    const int result = make_line_path(sfpId, attribute, path, __func__);
    if (result != 0)
        return result;
    const UniqueFd fd{open(path, O_RDONLY | O_CLOEXEC)};
    if (!fd)
        return DDAL_ERR_FAILURE;
    const ssize_t n = ddal_common_read_all(fd.get(), text, kTextLength);
    if (n < 0)
        return log_error(DDAL_ERR_FAILURE, "could not read from file: %s\n", path);
    text[n] = '\0';
    return 0;
}

int ddal_sfp_write_file(uint32_t sfpId, const char *attribute, char character)
{
    char path[kPathSize];
    const int result = make_line_path(sfpId, attribute, path, __func__);
    if (result != 0)
        return result;
    const UniqueFd fd{open(path, O_WRONLY | O_CLOEXEC)};
    if (!fd)
        return log_error(DDAL_ERR_FAILURE, "could not open file: %s\n", path);
    if (ddal_common_write_all(fd.get(), &character, 1) != 1)
        return log_error(DDAL_ERR_FAILURE, "could not write to file: %s\n", path);
    return 0;
}

int ddal_sfp_ctrl_get(uint32_t sfpId, uint32_t ctrl, uint32_t *value)
{
    if (ctrl >= std::size(kControls))
        return log_error(-ENOSYS, "ctrl: 0x%x not supported for sfpId: 0x%x\n", ctrl, sfpId);
    const Control &control = kControls[ctrl];
    uint32_t bit;
    const int result = read_control(sfpId, control, &bit);
    if (result == 0)
        *value = bit ? control.when_set : control.when_clear;
    return result;
}

int ddal_sfp_ctrl_set(uint32_t sfpId, uint32_t ctrl, uint32_t value)
{
    const int result = validate_sfp_ctrl_value(ctrl, value);
    if (result != 0)
        return result;
    const Control &control = kControls[ctrl];
    return ddal_sfp_write_file(sfpId, control.attribute, value == control.when_set ? '1' : '0');
}

int ddal_sfp_status_get(uint32_t sfpId, uint32_t status, uint32_t *value)
{
    *value = 0;
    if (status >= std::size(kSfpStatusLines))
        return log_error(DDAL_ERR_FAILURE, "Bad Sfp status\n");
    return read_line(sfpId, kSfpStatusLines[status], value);
}

int ddal_sfp_status_event_open(uint32_t sfpId, uint32_t status, int32_t *fd)
{
    if (status >= std::size(kSfpStatusLines))
        return log_error(DDAL_ERR_FAILURE, "invalid status %d\n", static_cast<int>(status));
    char path[kPathSize];
    const int result = make_line_path(sfpId, kSfpStatusLines[status], path, __func__);
    if (result != 0)
        return result;
    const int opened = open(path, O_RDONLY | O_CLOEXEC);
    if (opened < 0)
        return log_error(DDAL_ERR_SYSTEM, "cannot open file %s for reading: %m\n", path);
    *fd = opened;
    return 0;
}

int ddal_sfp_status_event_get(int fd, uint32_t *value)
{
    char text[kTextLength + 1] = {};
    // Reads only once: a second read, to find the end, would consume the notice of a change that the first one has not
    // seen.
    const ssize_t n = TEMP_FAILURE_RETRY(pread(fd, text, kTextLength, 0));
    if (n < 0)
        return -errno;
    if (n == 0)
        return DDAL_ERR_FAILURE;

    unsigned long number;
    const int result = parse_hexadecimal(text, &number);
    if (result != 0)
        return log_error(result, "status conversion failed '%s': %d\n", text, result);
    if (number > 1)
        return log_error(-ERANGE, "status out of range: %lu\n", number);
    *value = static_cast<uint32_t>(number);
    return 0;
}

int ddal_sfp_status_event_close(int fd)
{
    if (close(fd) != 0)
        return log_errno("failed to close fd: %m\n");
    return 0;
}
