// Shared parts of the Broadcom operations: the checks before a call, the copper ports and their register access.
#pragma once

#include <cstdint>

#include "core/log.h"
#include "switch/broadcom/sdk_call.h"
#include "switch/broadcom/start.h"

namespace ddal::ethswitch {

constexpr uint32_t kHighestPort = 255;

// Standard registers of a PHY, and those of the copper ports' Marvell PHY
constexpr uint32_t kControlRegister = 0;
constexpr uint32_t kControlReset = 0x8000;
constexpr uint32_t kControlLoadSpeed100 = 0x2000;
constexpr uint32_t kControlAutoneg = 0x1000;
constexpr uint32_t kControlPowerDown = 0x0800;
constexpr uint32_t kControlRestartAutoneg = 0x0200;
constexpr uint32_t kControlFullDuplex = 0x0100;
constexpr uint32_t kControlLoadSpeed1000 = 0x0040;

// Returns 0, or DDAL_ERR_FAILURE logged under the caller's name.
int check_port(const char *caller, uint32_t port);

// Returns 0, or DDAL_ERR_FAILURE with the text `missing` logged under the caller's name.
inline int check_given(const char *caller, bool is_given, const char *missing = "data cannot be null")
{
    if (is_given)
        return 0;
    return log_error_as(caller, DDAL_ERR_FAILURE, "%s\n", missing);
}

// Checks a list of `*size` entries. The list may be null if that is 0.
template <typename Entry>
int check_list(const char *caller, const Entry *list, const uint32_t *size)
{
    return check_given(caller, size && (list || *size == 0));
}

// Checks the arguments of an operation with outputs and opens the switch. Returns 0, or DDAL_ERR_FAILURE logged under
// the caller's name. `missing` is the log text for a null output.
inline int open_port_for(const char *caller, uint32_t port, bool has_outputs, const char *missing)
{
    const bool is_refused = check_port(caller, port) != 0 || check_given(caller, has_outputs, missing) != 0;
    return is_refused ? DDAL_ERR_FAILURE : open_bcm_switch();
}

// Returns the MDIO address of the port's PHY, or -1 for a fibre port.
int mdio_address(uint32_t port);
inline bool is_copper(uint32_t port)
{
    return mdio_address(port) >= 0;
}

// Returns 0. For a port without direct PHY access returns `code`, logged under the caller's name.
int check_copper(const char *caller, uint32_t port, int code = DDAL_ERR_FAILURE);

// Sets the bits of `mask` in a copper port's PHY control register to those of `value`. Returns 0 or DDAL_ERR_FAILURE.
int copper_port_control_register_modify(uint32_t port, uint32_t value, uint32_t mask);

// Reads one register of a copper port's PHY. Returns 0 or the SDK's result, logged under the caller's name.
int read_copper_register(const CallSite &site, uint32_t port, uint32_t reg, uint32_t *data);

} // namespace ddal::ethswitch
