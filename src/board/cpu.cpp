// Clock of the signal processors.
#include <ddal/cpu.h>

#include <cerrno>
#include <ddal/common.h>

namespace {

constexpr const char *kClockRate = "/sys/kernel/debug/clk/gem0/clk_rate";
constexpr int kDecimal = 10;

} // namespace

int ddal_cpu_get_clk_rate(uint32_t *hz)
{
    uint64_t rate = 0;
    const int result = ddal_kvb_common_read_string_to_u64(&rate, kClockRate, kDecimal);
    if (result != 0)
        return result;
    if (rate > UINT32_MAX)
        return -ERANGE;
    *hz = static_cast<uint32_t>(rate);
    return 0;
}
