// What the library writes to the system log, without source lines: "3 ddal_fpga_read: can't open device fpga_usr: ...".
#pragma once

#include <string>
#include <vector>

namespace testing_board {

class LogWatch {
public:
    LogWatch(); // from now on

    // The lines of this process since the watch began or was last asked. Messages in the "%s:%u- " form come as
    // "<priority> <function>: <text>", those in the "%s():%u " form as "<priority> <function>(): <text>", others as
    // "<priority> <text>".
    std::vector<std::string> take();

private:
    long position_;
};

} // namespace testing_board
