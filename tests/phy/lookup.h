// The lookup of interface name and number, the first step of every operation on device 1 of board type 8.
#pragma once

#include <string>
#include <vector>

#include "support/sweep.h"

namespace testing_board {

// Adds rows for its failures.
inline Sweep &with_lookup(Sweep &sweep, const std::string &operation)
{
    const std::string path = "/sys/class/net/eth0/dev_id", reader = "3 ddal_common_read_file: error ";
    const auto failing = [&](std::vector<std::string> lines) {
        lines.insert(lines.end(), {"3 find_name_and_dev_id: couldn't find dev_id for interface: 0x1(eth0)",
                                   "3 find_interface: couldn't find name & dev_id for interface: 0x1",
                                   "3 " + operation + ": couldn't find name & dev_id for phy dev: 1"});
        return fails(-1001, lines);
    };
    return sweep.when("fclose", changes_nothing())
        .when("fopen:" + path, failing({reader + "open " + path + ": %m"}))
        .when("fread/EIO:" + path, failing({reader + "read " + path + ": %m"}))
        .when("fread/end:" + path, failing({})); // an empty file is read successfully
}

} // namespace testing_board
