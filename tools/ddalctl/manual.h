#pragma once

#include <string>

namespace ddalctl {

// The manual page of the program or, with the name of a family, of its commands, in roff. Throws WrongUse.
std::string manual_page(const std::string &family);

// Writes all manual pages and completion scripts into a folder: ddalctl.1, ddalctl-fpga.1, ddalctl.bash, ... Throws
// Failure.
void write_documents(const std::string &folder);

} // namespace ddalctl
