// The FPGA's RF power meter.
#include <ddal/fpga.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <endian.h>
#include <fcntl.h>
#include <iterator>

#include <ddal/common.h>

#include "core/log.h"
#include "core/transfer.h"
#include "core/unique_fd.h"
#include "logic/fpga_driver.h"

using namespace ddal::logic;

namespace {

constexpr size_t kNumberTextSize = 24;

int write_number(uint32_t number, const char *path)
{
    char text[kNumberTextSize];
    const int length = snprintf(text, sizeof text, "%u", number);
    if (length < 0 || static_cast<size_t>(length) >= sizeof text)
        return DDAL_ERR_FAILURE;
    return ddal_common_write_string(text, path);
}

int read_number(uint32_t *number, const char *path)
{
    uint64_t value = 0;
    const int result = ddal_kvb_common_read_string_to_u64(&value, path, 0);
    if (result != 0)
        return result;
    if (value > UINT32_MAX)
        return -EOVERFLOW;
    *number = static_cast<uint32_t>(value);
    return 0;
}

void unpack(const PowerMeterRecord &record, uint32_t *data)
{
    const uint32_t first = le32toh(record.word[0]);
    for (const PowerMeterField &field : kPowerMeterFields)
        *data++ = (first >> field.shift) & field.mask;
    std::transform(std::begin(record.word) + 1, std::end(record.word), data,
                   [](uint32_t word) { return le32toh(word); });
}

} // namespace

int ddal_fpga_rf_pwr_loop_cnt_set(uint32_t count)
{
    const int result = write_number(count, kPowerMeterLoopCount);
    return log_failure(result, "RF Power Meter loop counter set %u error: %d\n", count, result);
}

int ddal_fpga_rf_pwr_loop_cnt_get(uint32_t *count)
{
    if (!count)
        return log_error(-EINVAL, "pointer to RF Power Meter loop counter is NULL\n");
    const int result = read_number(count, kPowerMeterLoopCount);
    return log_failure(result, "RF Power Meter loop counter get error: %d\n", result);
}

int ddal_fpga_rf_pwr_accum_range_set(uint32_t range)
{
    const int result = write_number(range, kPowerMeterAccumRange);
    return log_failure(result, "RF Power Meter accumulator range set %u error: %d\n", range, result);
}

int ddal_fpga_rf_pwr_accum_range_get(uint32_t *range)
{
    if (!range)
        return log_error(-EINVAL, "pointer to RF Power Meter accumulator range buffer is NULL\n");
    const int result = read_number(range, kPowerMeterAccumRange);
    return log_failure(result, "RF Power Meter accumulator range get error: %d\n", result);
}

int ddal_fpga_rf_pwr_open(int *fd)
{
    if (!fd)
        return log_error(-EINVAL, "pointer to RF Power Meter device descriptor is NULL\n");
    ddal::core::UniqueFd channel{open(kPowerMeterNode, O_RDONLY | O_CLOEXEC)};
    if (!channel)
        return log_errno("RF Power Meter device open error: %m\n");
    *fd = channel.release();
    return 0;
}

int ddal_fpga_rf_pwr_wait(int fd, uint32_t data[11])
{
    if (!data)
        return log_error(-EINVAL, "pointer to RF Power Meter data is NULL\n");

    PowerMeterRecord record;
    const ssize_t n = ddal_common_read_all(fd, &record, sizeof record);
    if (n >= 0)
        errno = 0; // an interrupted and continued read leaves EINTR behind
    if (n != sizeof record)
        return log_errno("RF Power Meter data read error: %m\n");
    unpack(record, data);
    return 0;
}

int ddal_fpga_rf_pwr_close(int fd)
{
    return close(fd) == 0 ? 0 : -errno;
}
