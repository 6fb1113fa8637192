// Services of the board, the library itself, and the page of the frame driver.
#pragma once

#include <vector>

#include "ddalctl/doctor/needs.h"
#include "ddalctl/doctor/problem.h"

namespace ddalctl::doctor {

// Each returns at most one problem.
std::vector<Problem> examine_socket(const Need &need);
std::vector<Problem> examine_port(const Need &need);
std::vector<Problem> examine_bus(const Need &need);
std::vector<Problem> examine_frame(const Need &need);
// Loads the library in a child, because its constructor may abort.
std::vector<Problem> examine_library(const Need &need);

} // namespace ddalctl::doctor
