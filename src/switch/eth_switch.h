// Who may use the switch's front end.
#pragma once

#include <cstdint>

namespace ddal::ethswitch {

// 0 on the board with the Broadcom switch, else -ENOSYS.
int verify_broadcom_support();

// 0, or -ENOSYS for any switch device but the one that is served. The second form asks for the board first.
int admit(const char *caller, uint32_t sw);
int admit_board_first(const char *caller, uint32_t sw);

} // namespace ddal::ethswitch
