// Resets of units of the board.
#include <ddal/reset.h>

#include <cerrno>

#include <ddal/watchdog.h>

int ddal_reset_set(uint32_t target, uint32_t action)
{
    const bool is_unit = target == DDAL_RESET_UNIT || target == DDAL_RESET_UNIT_1;
    return is_unit && action == DDAL_RESET_ACTION_RESET ? ddal_watchdog_reboot() : -ENOSYS;
}
