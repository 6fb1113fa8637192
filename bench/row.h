// The rows of the table that "./dev bench" prints: bench/table.py finds them in the output.
#pragma once

#include <cstdio>

namespace bench {

constexpr double kNoLimit = 0;

// Prints one row: `ratio` is a time or a count of `what` over that of `beside`, so that less is better.
inline void print_row(const char *what, const char *beside, double ratio, double at_most = kNoLimit)
{
    printf("= %s | %s | %.2f | ", what, beside, ratio);
    if (at_most > 0)
        printf("at most %.2f\n", at_most);
    else
        printf("\n");
    fflush(stdout);
}

} // namespace bench
