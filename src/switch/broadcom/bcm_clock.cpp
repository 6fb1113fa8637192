// Selects the port whose received clock the switch hands out.
#include <ddal/bcm.h>
#include <ddal/bcmdiag.h>

#include <climits>
#include <cstring>

#include "switch/broadcom/clock.h"
#include "switch/broadcom/port.h"

using namespace ddal::ethswitch;

namespace {

constexpr uint32_t kFirstClockPort = 10;
constexpr uint32_t kLastClockPort = 21;
constexpr uint32_t kPortWithoutClock = 17;

} // namespace

int ddal::ethswitch::port2channel(uint32_t port, uint32_t *channel)
{
    if (port < kFirstClockPort || port > kLastClockPort || port == kPortWithoutClock)
        return log_error(DDAL_ERR_FAILURE, "Invalid port: %d\n", static_cast<int>(port));
    *channel = port - kFirstClockPort;
    return 0;
}

int ddal_bcm_set_synce_source(uint32_t port)
{
    if (check_port(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    uint32_t channel = 0;
    if (port2channel(port, &channel) != 0)
        return log_error(DDAL_ERR_FAILURE, "Setting synce source to port %u failed\n", port);
    if (open_bcm_switch() != 0)
        return DDAL_ERR_FAILURE;

    const int rc = telnet_bcmdiag(nullptr, "modreg top_misc_control_2 l1_rcvd_pri_clk_port_sel=%u", channel);
    if (rc != 0) {
        char buffer[128];
        const char *const text = strerror_r(rc == INT_MIN ? rc : -rc, buffer, sizeof buffer);
        return log_error(DDAL_ERR_FAILURE, "Setting synce source to port %u failed: %s\n", port, text);
    }
    return 0;
}
