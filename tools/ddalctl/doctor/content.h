// The content that a file of the board should have.
#pragma once

#include <string>

#include "ddalctl/doctor/needs.h"

namespace ddalctl::doctor {

// Returns what is wrong with the bytes, or an empty text.
std::string flaw_of(Content content, const std::string &bytes);

} // namespace ddalctl::doctor
