// The failure sweep: fails the first, second, third ... call that an operation makes, each in every plausible way,
// until a run ends in which nothing failed, and compares result and log lines with what is expected for that failure.
//
//     Sweep("ddal_fpga_read", [] { uint32_t value; return ddal_fpga_read(0x100, &value); })
//         .succeeds(1)
//         .when("open", fails_with_errno("3 ddal_fpga_read: can't open device fpga_usr: %m"))
//         .when("pread/end", fails(-1001, {"3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read"}))
//         .when("pread", fails_with_errno("3 ddal_fpga_read: fpga read failed: %m"))
//         .run();
//
// A place is a call's name with an optional "/EINTR" (or another errno name), "/short" (one byte is moved), "/end"
// (none), and an optional ":path" of the board with a closing "*": "pread/EINTR:/dev/fpga*". The first fitting row
// counts. Without a row of their own, EINTR and short transfers of the retried calls, and failures of close and munmap,
// change nothing.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/resources.h"

namespace testing_board {

struct Injected {
    std::string call;
    std::string path;
    int error; // 0: a short transfer
    bool end;  // nothing was moved
};

struct Outcome {
    long result;
    std::vector<std::string> lines; // as LogWatch gives them; a closing "*" matches any rest
};

using Expectation = std::function<Outcome(const Injected &, const Outcome &success)>;

// -errno and one line, in which "%m" stands for the error's text.
Expectation fails_with_errno(std::string line);
// -errno, or `when_zero` for a transfer that ended early without an error, and these lines.
Expectation fails_with_errno_or(long when_zero, std::vector<std::string> lines);
// One line of the helper that failed, then those of its callers, in which "%d" is the negative errno. -errno, or
// `result`.
Expectation fails_through(std::string line, std::vector<std::string> callers, std::optional<long> result = {});
// A fixed result and these lines ("%m" as above).
Expectation fails(long result, std::vector<std::string> lines);
// For a place that an operation comes by several times: each in turn, the last one from then on. Counted are points, so
// a call with two kinds of failure takes two.
Expectation in_turn(std::vector<Expectation> expectations);
// As if nothing had failed.
Expectation changes_nothing();

class Sweep {
public:
    Sweep(std::string name, std::function<long()> operation);

    // Runs before each try, to bring the board back into its state.
    Sweep &before(std::function<void()> prepare);
    // Runs after each try, while the outcome is not yet judged; adds failures of its own through gtest.
    Sweep &after(std::function<void(const Outcome &)> check);
    Sweep &succeeds(long result, std::vector<std::string> lines = {});
    Sweep &when(std::string place, Expectation expectation);
    // Judges each try instead of the table, for operations that make the same call in several steps. Without a failure
    // `injected.call` is empty.
    Sweep &judged_by(std::function<void(const Injected &injected, const Outcome &seen)> judge);
    // Fails this call only ("rename", or "open:/ffs/*" on a path): for operations that are too slow to be swept whole,
    // and for "exec", each program that the operation starts.
    Sweep &only(std::string place);
    // Folders of the board in which no file may be left behind.
    Sweep &watch(std::vector<std::string> folders);

    // Runs it all; every deviation is a gtest failure. Returns and prints the number of points; none is a failure.
    int run();

private:
    struct Row {
        std::string place;
        Expectation expectation;
    };
    Outcome attempt();
    Outcome expected(const Injected &injected, bool *known) const;
    void compare(const std::string &where, const Injected *injected, const Outcome &seen) const;
    bool try_point(unsigned nth, unsigned variant, bool *more_variants);

    std::string name_;
    std::function<long()> operation_;
    std::function<void()> prepare_ = [] {};
    std::function<void(const Outcome &)> check_ = [](const Outcome &) {};
    Outcome success_{0, {}};
    std::vector<Row> rows_;
    std::vector<std::string> folders_;
    std::string only_;
    std::function<void(const Injected &, const Outcome &)> judge_;
    int points_ = 0;
};

} // namespace testing_board
