// Board type.
#include <ddal/unit.h>

#include <atomic>

#include <ddal/common.h>

#include "core/log.h"
#include "identity/properties.h"

namespace {

constexpr int kUnknown = -1;

// Threads that race for the first read all store the same value.
std::atomic<int> board_type{kUnknown};

} // namespace

int ddal_unit_get_board(void)
{
    const int known = board_type.load(std::memory_order_relaxed);
    if (known != kUnknown)
        return known;

    uint32_t cell = 0;
    if (ddal_common_read_u32val(&cell, ddal::identity::kBoardTypeProperty) != 0 || cell >= DDAL_BOARD_TYPE_MBO)
        return log_error(DDAL_ERR_FAILURE, "Couldn't read board type\n");

    const int type = static_cast<int>(cell) + 1;
    board_type.store(type, std::memory_order_relaxed);
    return type;
}

int ddal_unit_get_board_subtype(void)
{
    return ddal_unit_get_board();
}
