// The exclusive hold on the RF card's UART.
#pragma once

namespace ddal::rf_card {

// Takes the hold for the open file behind `fd`. The last close of that file ends it. An open file that has the hold
// keeps it. Returns 0, -EBUSY when another open file has it (logged with the process that took it), or another negative
// errno.
int hold_uart(int fd);

} // namespace ddal::rf_card
