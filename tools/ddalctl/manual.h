#pragma once

#include <string>

namespace ddalctl {

// The manual page, in roff.
std::string manual_page();

} // namespace ddalctl
