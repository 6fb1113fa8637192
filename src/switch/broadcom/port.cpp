#include "switch/broadcom/port.h"

namespace ddal::ethswitch {

namespace {

struct CopperPort {
    uint32_t port;
    int mdio;
};

constexpr CopperPort kCopperPorts[] = {{14, 1}, {16, 0}, {20, 0}};

} // namespace

int check_port(const char *caller, uint32_t port)
{
    if (port <= kHighestPort)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "invalid port %d\n\n", static_cast<int>(port));
}

int mdio_address(uint32_t port)
{
    for (const CopperPort &copper : kCopperPorts) {
        if (copper.port == port)
            return copper.mdio;
    }
    return -1;
}

int check_copper(const char *caller, uint32_t port, int code)
{
    if (is_copper(port))
        return 0;
    return log_error_as(caller, code, "port %u is not copper (or direct phy access is disallowed)\n", port);
}

int copper_port_control_register_modify(uint32_t port, uint32_t value, uint32_t mask)
{
    if (check_copper(__func__, port) != 0)
        return DDAL_ERR_FAILURE;
    const int rv =
        sdk_result(bcm_port_phy_modify, kUnit, mdio_address(port), BCM_PORT_PHY_NOMAP, kControlRegister, value, mask);
    if (rv == BCM_E_NONE)
        return 0;
    return log_error(DDAL_ERR_FAILURE, "bcm_port_phy_modify failed on port %u: %s\n", port, sdk_text(rv));
}

int read_copper_register(const CallSite &site, uint32_t port, uint32_t reg, uint32_t *data)
{
    const int rv = sdk_result(bcm_port_phy_get, kUnit, mdio_address(port), BCM_PORT_PHY_NOMAP, reg, data);
    if (rv != BCM_E_NONE)
        log_port_failure(site, port, rv);
    return rv;
}

} // namespace ddal::ethswitch
