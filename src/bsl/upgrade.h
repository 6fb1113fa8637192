// The steps of an operation on the RF card: enter the loader, unlock it, return to the application.
#pragma once

#include <cstdint>

#include "bsl/link.h"
#include "core/unique_fd.h"

namespace ddal::bsl {

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

// Opens the UART and takes the hold. Returns 0, or -EBUSY or DDAL_ERR_FAILURE with the UART closed.
int open_uart(Session &session);
// Switches the power on, opens the UART unless it is open, sets 9600 baud and enters the loader. Returns 0, or -EBUSY
// or DDAL_ERR_FAILURE with the UART closed.
int enter_loader(Session &session);

// Reads and logs the loader's version. Returns 0 or a link code. Bytes that the loader does not send are 0.
uint32_t read_loader_version(const Session &session, Loader loader, uint8_t version[4]);
// Sets loader and UART to 57600 baud. Returns 0, DDAL_ERR_FAILURE, or a negative errno with the UART closed.
int raise_speed(Session &session);
// Sends the password, a second time if the first is refused. Returns 0 or DDAL_ERR_FAILURE.
int unlock_loader(Session &session);
// Changes only the UART's speed. Returns 0, or a negative errno with the UART closed.
int set_uart_speed(Session &session, uint32_t baud);

// Queries the status once a second, for at most 21 s. Returns 0 or -1.
int wait_for_up_ready();
// Makes the application rewrite the loader. Returns 0 or DDAL_ERR_FAILURE.
int write_bsl(Session &session);
// Restarts the card into its application and closes the UART. Returns the result so far.
int bsl_app_mode(int result, Session &session);

} // namespace ddal::bsl
