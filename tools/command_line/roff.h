// Texts as manual pages have them.
#pragma once

#include <string>

namespace command_line {

// Escapes a text, so that hyphens stay hyphens and no line begins a request.
std::string roff(const std::string &text);

} // namespace command_line
