// Wi-Fi support of the board.
#include <ddal/wifi.h>

#include <ddal/sysinfo.h>

#include "core/log.h"

namespace {

constexpr uint32_t kCategory = 0;
constexpr uint32_t kUserDefinedKey = 13;
constexpr uint32_t kWifiSupportField = 20;
constexpr int kNo = -1; // kept: callers expect this number

} // namespace

int ddal_is_wifi_supported()
{
    uint64_t value = 0;
    const int result = ddal_sysinfo_get_uint(kCategory, kUserDefinedKey, kWifiSupportField, &value);
    if (result != 0)
        return log_error(kNo, "ddal_sysinfo_get_uint failed to check wifi support, value returned: %d\n", result);
    return value == 1 || value == 2 ? 0 : kNo;
}
