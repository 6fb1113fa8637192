// The library, loaded when the first operation is called: help, manual and completion work where there is no board.
#pragma once

namespace ddalctl {

// The address of an exported operation. Throws Failure where this machine is no board, the library is not installed, or
// does not offer the operation.
void *library_symbol(const char *name);

} // namespace ddalctl

// An operation with the prototype of its public header: DDAL(ddal_fpga_read)(address, &value).
#define DDAL(name) (reinterpret_cast<decltype(&::name)>(::ddalctl::library_symbol(#name)))
