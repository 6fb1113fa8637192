// Lines of the library in the system log, without source lines: "3 ddal_fpga_read: can't open device fpga_usr: ...".
#pragma once

#include <string>
#include <vector>

namespace testing_board {

class LogWatch {
public:
    LogWatch(); // starts the watch

    // Returns the lines of this process since the start of the watch or the last call. Messages in the "%s:%u- " form
    // become "<priority> <function>: <text>", those in the "%s():%u " form "<priority> <function>(): <text>", others
    // "<priority> <text>".
    std::vector<std::string> take();

private:
    long position_;
};

} // namespace testing_board
