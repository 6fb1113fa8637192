// Failure sweeps of operations that run several of the board's programs.
#pragma once

#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "storage/flash_disk.h"
#include "support/sweep.h"

namespace testing_board {

// One program that the operation runs.
struct ProgramStep {
    std::string run;                                  // line in the log of runs
    std::string path;                                 // path in the library's call
    std::function<Outcome(long outcome)> when_failed; // by 127 or -errno; the runner's own line comes before its lines
    std::optional<std::vector<std::string>> instead = {}; // the runs, if the operation continues
    std::string runner = "_ddal_common_shell_command: system";
    std::vector<std::string> earlier = {}; // lines before the runner's
};

// The effect of a failing program on most operations: DDAL_ERR_FAILURE for its exit status, -errno when it did not
// start, and lines in which "%d" is the outcome and "%r" the result.
inline std::function<Outcome(long)> ends_with(std::vector<std::string> lines)
{
    return [=](long outcome) {
        Outcome failed{outcome > 0 ? -1001 : outcome, lines};
        for (std::string &line : failed.lines) {
            if (const size_t at = line.find("%d"); at != std::string::npos)
                line.replace(at, 2, std::to_string(outcome));
            if (const size_t at = line.find("%r"); at != std::string::npos)
                line.replace(at, 2, std::to_string(failed.result));
        }
        return failed;
    };
}

inline std::vector<std::string> lines_of(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Expects the failure of one of these programs. The log of runs shows which one.
inline Expectation program_fails(std::vector<ProgramStep> steps, bool started)
{
    return [=](const Injected &injected, const Outcome &success) {
        const std::vector<std::string> runs = lines_of(file_content("/run/stub/log"));
        size_t at = 0;
        while (at < steps.size() && steps[at].instead != runs)
            ++at;
        if (at == steps.size())
            for (at = 0; at < runs.size() && at < steps.size() && runs[at] == steps[at].run;)
                ++at;
        if (at == steps.size())
            return Outcome{success.result, {"every program ran"}};
        std::vector<std::string> before;
        for (size_t i = 0; i < at; ++i)
            before.push_back(steps[i].run);
        EXPECT_EQ(runs, steps[at].instead.value_or(before)) << "after the failure of " << steps[at].run;

        const long outcome = started ? 127 : -injected.error;
        Outcome expected = steps[at].when_failed(outcome);
        if (!started)
            expected.lines.insert(expected.lines.begin(), "3 " + steps[at].runner + " ('" + steps[at].path +
                                                              "') failed: " + std::to_string(outcome));
        expected.lines.insert(expected.lines.begin(), steps[at].earlier.begin(), steps[at].earlier.end());
        return expected;
    };
}

// Adds rows for the start of these programs. Empties the log of runs before each try.
inline Sweep &with_programs(Sweep &sweep, const std::vector<ProgramStep> &steps)
{
    return sweep.before([] { put_file("/run/stub/log", ""); })
        .when("pipe", program_fails(steps, false))
        .when("fdopen", program_fails(steps, false))
        .when("fork", program_fails(steps, false))
        .when("open:/dev/null", program_fails(steps, true))
        .when("open:/proc/*", program_fails(steps, true));
}

} // namespace testing_board
