// Waits for the FPGA's pulse per second.
#include <ddal/clock.h>

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/pps.h>
#include <sys/ioctl.h>

#include "core/log.h"
#include "core/unique_fd.h"
#include "platform/clock_devices.h"

using ddal::core::minus_errno;
using ddal::core::UniqueFd;
using namespace ddal::platform;

static_assert(sizeof(ddal_clk_event) == 120 && offsetof(ddal_clk_event, sequence) == 8 &&
              offsetof(ddal_clk_event, sec) == 60 && offsetof(ddal_clk_event, nsec) == 64);

namespace {

constexpr long kShortestWaitNanoseconds = 10'000'000;

int enable_capture(int fd)
{
    pps_kparams parameters{};
    if (ioctl(fd, PPS_GETPARAMS, &parameters) < 0)
        return -EOPNOTSUPP;
    parameters.mode |= PPS_CAPTUREASSERT;
    errno = 0;
    return ioctl(fd, PPS_SETPARAMS, &parameters) < 0 ? minus_errno() : 0;
}

pps_ktime limit_of(const timespec *timeout)
{
    pps_ktime limit{};
    if (!timeout) {
        limit.flags = PPS_TIME_INVALID; // wait without a limit
        return limit;
    }
    limit.sec = timeout->tv_sec;
    limit.nsec = static_cast<int32_t>(timeout->tv_nsec);
    if (timeout->tv_sec == 0 && timeout->tv_nsec < kShortestWaitNanoseconds)
        limit.nsec = kShortestWaitNanoseconds;
    return limit;
}

} // namespace

int ddal_clk_event_wait_until(uint32_t event, const struct timespec *timeout, struct ddal_clk_event *event_out)
{
    if (event != DDAL_CLK_EVENT_PPS)
        return log_error(DDAL_ERR_FAILURE, "Unsupported event type: %d\n", static_cast<int>(event));

    const UniqueFd fd{open(kPpsNode, O_RDWR | O_CLOEXEC)};
    if (!fd)
        return log_errno("Unable to open %s: %m\n", kPpsNode);
    const int result = enable_capture(fd.get());
    if (result != 0)
        return result;

    pps_fdata pulse{};
    pulse.timeout = limit_of(timeout);
    errno = 0;
    if (ioctl(fd.get(), PPS_FETCH, &pulse) < 0)
        return minus_errno();

    if (event_out) {
        *event_out = {};
        event_out->event = DDAL_CLK_EVENT_PPS;
        event_out->sequence = pulse.info.assert_sequence;
        event_out->sec = static_cast<uint32_t>(pulse.info.assert_tu.sec);
        event_out->nsec = static_cast<uint32_t>(pulse.info.assert_tu.nsec);
    }
    return 0;
}
