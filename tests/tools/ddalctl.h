// ddalctl as a user runs it.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

#include "support/program.h"

namespace testing_board {

using Json = nlohmann::json;

// ddalctl("fpga read 0x100")
inline Finished ddalctl(const std::string &line)
{
    return run_program(words_of(std::string(DDALCTL_PROGRAM) + " " + line));
}

// Returns the document that ddalctl --json prints. Throws, and so fails the test, unless the output is exactly one
// document.
inline Json document_of(const Finished &run)
{
    return Json::parse(run.out);
}

inline Json ddalctl_json(const std::string &line)
{
    return document_of(ddalctl("--json " + line));
}

} // namespace testing_board
