// The failure sweep: fails the first, second, third ... call of an operation, each in every plausible way, until a run
// ends without a failure. Compares the result and the log lines with the expectation for each failure.
//
//     Sweep("ddal_fpga_read", [] { uint32_t value; return ddal_fpga_read(0x100, &value); })
//         .succeeds(1)
//         .when("open", fails_with_errno("3 ddal_fpga_read: can't open device fpga_usr: %m"))
//         .when("pread/end", fails(-1001, {"3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read"}))
//         .when("pread", fails_with_errno("3 ddal_fpga_read: fpga read failed: %m"))
//         .run();
//
// A place is a call's name with an optional "/EINTR" (or another errno name), "/short" (one byte is moved) or "/end" (0
// bytes), and an optional ":path" of the board with a closing "*": "pread/EINTR:/dev/fpga*". The first fitting row
// counts. Without a row, EINTR and short transfers of the retried calls and failures of close and munmap change
// nothing.
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
    bool end;  // 0 bytes were moved
};

struct Outcome {
    long result;
    std::vector<std::string> lines; // in the form of LogWatch; a closing "*" matches any rest
};

using Expectation = std::function<Outcome(const Injected &, const Outcome &success)>;

// Expects -errno and one line, in which "%m" stands for the error's text.
Expectation fails_with_errno(std::string line);
// Expects these lines and -errno, or `when_zero` for a transfer that ended early without an error.
Expectation fails_with_errno_or(long when_zero, std::vector<std::string> lines);
// Expects one line of the helper that failed, then those of its callers, in which "%d" is the negative errno. The
// result is -errno or `result`.
Expectation fails_through(std::string line, std::vector<std::string> callers, std::optional<long> result = {});
// Expects a fixed result and these lines ("%m" as above).
Expectation fails(long result, std::vector<std::string> lines);
// Expects each in turn, for a place that an operation reaches several times; the last one stays in effect. Points are
// counted, so a call with two kinds of failure takes two.
Expectation in_turn(std::vector<Expectation> expectations);
// Expects the outcome of a run without a failure.
Expectation changes_nothing();

class Sweep {
public:
    Sweep(std::string name, std::function<long()> operation);

    // Runs before each try, to bring the board back into its state.
    Sweep &before(std::function<void()> prepare);
    // Runs after each try, before its outcome is judged. May add failures through gtest.
    Sweep &after(std::function<void(const Outcome &)> check);
    Sweep &succeeds(long result, std::vector<std::string> lines = {});
    Sweep &when(std::string place, Expectation expectation);
    // Judges each try instead of the table, for operations that make the same call in several steps. `injected.call` is
    // empty in a run without a failure.
    Sweep &judged_by(std::function<void(const Injected &injected, const Outcome &seen)> judge);
    // Fails only this call ("rename", or "open:/ffs/*" on a path), for operations that are too slow for a whole sweep.
    // "exec" fails each program that the operation starts.
    Sweep &only(std::string place);
    // Folders of the board in which the operation may leave no file behind.
    Sweep &watch(std::vector<std::string> folders);

    // Runs the sweep. Every deviation is a gtest failure, as is a sweep without a point. Returns and prints the number
    // of points.
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
