// Loads the library at the first call of an operation, so that help, manual and completion work without a board.
#pragma once

namespace ddalctl {

// Returns the address of an exported operation. Throws Failure when the machine is not a board, the library is not
// installed, or the library does not export the operation.
void *library_symbol(const char *name);

} // namespace ddalctl

// An operation with the prototype of its public header: DDAL(ddal_fpga_read)(address, &value).
#define DDAL(name) (reinterpret_cast<decltype(&::name)>(::ddalctl::library_symbol(#name)))
