// The steps of an operation on the RF card: into the loader, unlock it, and back into the application.
#pragma once

#include <cstdint>

#include "bsl/link.h"
#include "core/unique_fd.h"

namespace ddal::bsl {

// What an operation on the card carries along. Until its end no other session gets at the card, nor at the link timing,
// packet room and image parser of the process.
struct Session {
    int verbose;
    Progress progress;
    bool loader_known = false; // its version could be read, which decides the password's length
    core::UniqueFd hold = {};  // the UART once more: a failed change of its speed closes the other
    core::UniqueFd uart = {};
};

// The loader that the card came with, or the one that the application has just written.
enum class Loader { current, rewritten };

// Opens the UART and takes the hold: 0, -EBUSY or -1001 with the UART closed.
int open_uart(Session &session);
// Power, UART (opened unless it is open) at 9600 baud, loader entry: 0, or -EBUSY or -1001 with the UART closed.
int enter_loader(Session &session);

// Reads and logs the loader's version: 0 or a link code. The bytes not sent by the loader are 0.
uint32_t read_loader_version(const Session &session, Loader loader, uint8_t version[4]);
// Loader and UART to 57600 baud: 0, -1001, or a negative errno with the UART closed.
int raise_speed(Session &session);
// Sends the password, twice if need be: 0 or -1001.
int unlock_loader(Session &session);
// Changes the UART's own speed: 0, or a negative errno with the UART closed.
int set_uart_speed(Session &session, uint32_t baud);

// 0 or -1: status queries once a second, for at most 21 s.
int wait_for_up_ready();
// Has the application rewrite the loader: 0 or -1001.
int write_bsl(Session &session);
// Restarts the card into its application and closes the UART; returns the result so far.
int bsl_app_mode(int result, Session &session);

} // namespace ddal::bsl
