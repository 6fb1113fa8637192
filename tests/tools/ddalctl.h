// ddalctl as a user runs it.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

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

// Returns the objects that a command which lasts has printed, one a line. The last one may be its failure.
inline std::vector<Json> events_of(const Finished &run)
{
    std::vector<Json> events;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        events.push_back(Json::parse(line));
        if (events.back().contains("error"))
            break;
        if (!std::regex_match(events.back().at("time").get<std::string>(),
                              std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{9}Z")))
            throw std::runtime_error("no time in " + line);
    }
    return events;
}

inline Json ddalctl_json(const std::string &line)
{
    return document_of(ddalctl("--json " + line));
}

} // namespace testing_board
