// Loads the library at the first call of an operation, so that help, manual and completion work without a board.
#pragma once

#include <string>

namespace ddalctl {

// Returns the address of an exported operation, whose evidence begins here. Throws Failure when the machine is not a
// board, the library is not installed, or the library does not export the operation.
void *library_symbol(const char *name);

// The library's text for a result code.
std::string library_text(int code);

} // namespace ddalctl

// An operation with the prototype of its public header: DDAL(ddal_fpga_read)(address, &value).
#define DDAL(name) (reinterpret_cast<decltype(&::name)>(::ddalctl::library_symbol(#name)))
