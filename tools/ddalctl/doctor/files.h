// Nodes, attributes, properties, files, folders and programs of the board. Nothing is changed; only what the table says
// to hold something is read.
#pragma once

#include <string>
#include <vector>

#include "ddalctl/doctor/needs.h"
#include "ddalctl/doctor/problem.h"

namespace ddalctl::doctor {

// Returns what is wrong with the files that the path of a need stands for.
std::vector<Problem> examine_files(const Need &need);

// Returns the bytes of a file, or an empty text.
std::string bytes_of(const std::string &path);

} // namespace ddalctl::doctor
