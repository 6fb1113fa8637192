// Rows of a sweep for property files that an operation reads or writes as a whole. A path may end in "*".
#pragma once

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "support/sweep.h"

namespace testing_board {

// Adds rows for a file that is read. Its readers log these lines ("%d" is the negative errno) and return -errno or
// `result`.
inline Sweep &add_reading(Sweep &sweep, const std::string &path, const std::vector<std::string> &callers = {},
                          std::optional<long> result = {})
{
    const std::string shown = path.ends_with('*') ? "*" : path + ": %m";
    for (const auto &[place, what] :
         {std::pair{"fopen:", "open "}, {"fread/EIO:", "read "}, {"fseek:", "seek "}, {"ftell:", "tell "}})
        sweep.when(place + path,
                   fails_through(std::string("3 ddal_common_read_file: error ") + what + shown, callers, result));
    return sweep.when("fclose:" + path, changes_nothing());
}

// Adds rows for a file that is written by a helper, which logs under its name.
inline Sweep &add_writing(Sweep &sweep, const std::string &path, const std::string &helper,
                          const std::vector<std::string> &callers = {})
{
    const auto line = [&](const char *what) { return "3 " + helper + ": error " + what + " " + path + ": %m"; };
    std::vector<std::string> unwritten = {line("write") + "*"};
    for (std::string caller : callers)
        unwritten.push_back(caller.replace(std::min(caller.find("%d"), caller.size()), 2, "-5"));
    return sweep.when("open:" + path, fails_through(line("open"), callers))
        .when("write/EIO:" + path, fails_through(line("write"), callers))
        .when("write/end:" + path, fails(-EIO, unwritten))
        .when("close:" + path, fails_through(line("close"), callers));
}

} // namespace testing_board
