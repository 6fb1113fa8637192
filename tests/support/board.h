// The board that runs the test.
#pragma once

#include <string>

#include "client/client.h"

namespace testing_board {

// Connection to the board of this process.
inline vboard::Client &board()
{
    static vboard::Client client;
    return client;
}

// Runs one control command, as `vboard ctl` does. Throws on a wrong command, which fails the test.
inline std::string ctl(const std::string &line)
{
    return board().run(line);
}

// A fault rule that lasts for its scope: Fault fault("pread:/dev/fpga_usr nth=2 errno=EIO").
class Fault {
public:
    explicit Fault(const std::string &rule) : number_(std::stoul(ctl("fault add " + rule))) {}
    ~Fault() { ctl("fault clear " + std::to_string(number_)); }
    Fault(const Fault &) = delete;
    Fault &operator=(const Fault &) = delete;

    unsigned fired() const { return board().page().faults[number_].fired.load(); }
    unsigned seen() const { return board().page().faults[number_].seen.load(); }

private:
    unsigned long number_;
};

} // namespace testing_board
