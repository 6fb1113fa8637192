// The flash disk of the board: sets its state and reads the log of program runs.
#pragma once

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/board_file.h"

namespace testing_board {

// Runs a line in the board's shell. The shell's programs are those that the library runs.
inline void shell(const std::string &line)
{
    ASSERT_EQ(system(line.c_str()), 0) << line; // NOLINT(cert-env33-c): the board's shell is what is wanted
}

// Returns the runs of the board's programs since the last call, one per line.
inline std::string program_runs()
{
    const std::string log = file_content("/run/stub/log");
    put_file("/run/stub/log", "");
    return log;
}

// Makes a program, or a program with certain first arguments, end with an exit status or "signal NAME".
class FailingProgram {
public:
    FailingProgram(const std::string &program, const std::string &how) : order_("/run/stub/fail/" + program)
    {
        put_file(order_, how);
    }
    ~FailingProgram() { unlink(order_.c_str()); }
    FailingProgram(const FailingProgram &) = delete;
    FailingProgram &operator=(const FailingProgram &) = delete;

private:
    std::string order_;
};

} // namespace testing_board
