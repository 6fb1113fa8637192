// Comparison of the results of one run.
#pragma once

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/row.h"

namespace bench {

// Prints as usual and keeps the best time of every benchmark's repetitions, because a disturbance only makes a run
// slower.
class Comparison : public benchmark::ConsoleReporter {
public:
    Comparison() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const double time = run.GetAdjustedRealTime();
            const auto [known, fresh] = best_.try_emplace(run.run_name.function_name, time);
            if (!fresh)
                known->second = std::min(known->second, time);
        }
    }

    // Prints both times, and the row of the table: `what` beside `beside`.
    void print_ratio(const std::string &name, const std::string &peer, const char *what, const char *beside,
                     double at_most = kNoLimit) const
    {
        const auto own = best_.find(name);
        const auto other = best_.find(peer);
        if (own == best_.end() || other == best_.end()) // a filter may leave one out
            return;
        printf("%s: %.1f ns, %.2f times %s (%.1f ns), %+.1f ns\n", name.c_str(), own->second,
               own->second / other->second, peer.c_str(), other->second, own->second - other->second);
        print_row(what, beside, own->second / other->second, at_most);
    }

private:
    std::map<std::string, double> best_;
};

} // namespace bench
