// Device-tree properties that more than one place reads.
#pragma once

namespace ddal::identity {

// A macro, so that property paths are concatenated at compile time.
#define DDAL_BOARD_IDENTITY "/proc/device-tree/board-identity"

inline constexpr const char *kBoardTypeProperty = DDAL_BOARD_IDENTITY "/board-type";

} // namespace ddal::identity
