// The steps of an operation on the RF card: enter the loader, unlock it, return to the application.
#pragma once

#include <cstdint>

#include "core/unique_fd.h"
#include "rf_card/link.h"

namespace ddal::rf_card {

// State of one operation on the card. Until it ends, no other session can access the card or the link timing, packet
// buffer and image parser of the process.
struct Session {
    int verbose;
    Progress progress;
    bool loader_known = false; // its version could be read; decides the password's length
    core::UniqueFd hold = {};  // a second descriptor of the UART, because a failed change of speed closes the other
    core::UniqueFd uart = {};
};

// The loader that was on the card, or the one that the application has just written.
enum class Loader { current, rewritten };

// The result of a step in the loader.
struct Step {
    int result = 0;
    bool loses_card = false; // a failed change of speed has closed the UART, so that the card cannot be restarted
};

// Opens the UART and takes the hold. Returns 0, -EBUSY or DDAL_ERR_FAILURE.
int open_uart(Session &session);
// Switches the power on, opens the UART unless it is open, sets 9600 baud and enters the loader. Returns 0, -EBUSY or
// DDAL_ERR_FAILURE; a failure ends the operation.
int enter_loader(Session &session);

// Reads and logs the loader's version. Returns 0 or a link code. Bytes that the loader does not send are 0.
uint32_t read_loader_version(const Session &session, Loader loader, uint8_t version[4]);
// Sets loader and UART to 57600 baud. Returns 0, DDAL_ERR_FAILURE, or a negative errno that loses the card.
Step raise_speed(Session &session);
// Sends the password, a second time if the first is refused. Returns 0 or DDAL_ERR_FAILURE.
int unlock_loader(Session &session);
// Changes only the UART's speed. Returns 0, or a negative errno that loses the card.
Step set_uart_speed(Session &session, uint32_t baud);

// Queries the status once a second, for at most 21 s. Returns 0 or -1.
int wait_for_up_ready();
// Makes the application rewrite the loader. Returns 0 or DDAL_ERR_FAILURE.
int write_bsl(Session &session);
// Restarts the card into its application, unless the card is lost. Returns the result so far.
int leave_loader(Step so_far, Session &session);

} // namespace ddal::rf_card
