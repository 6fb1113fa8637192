// Cost of loading the library, from start to end of a process: without it, with it, with the D-Bus library too, and
// with a first link event.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench/link_bus.h"
#include "bench/row.h"

namespace {

constexpr int kRounds = 300;

struct Kind {
    const char *name;
    std::vector<const char *> arguments;
    std::vector<int64_t> times;
};

// Returns the ns from start to end of a probe.
int64_t run(const std::string &probe, const std::vector<const char *> &arguments)
{
    std::vector<char *> words = {const_cast<char *>(probe.c_str())};
    for (const char *argument : arguments)
        words.push_back(const_cast<char *>(argument));
    words.push_back(nullptr);
    pid_t pid = 0;
    int status = 0;
    const int64_t start = bench::monotonic_ns();
    if (posix_spawn(&pid, probe.c_str(), nullptr, nullptr, words.data(), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
        printf("the probe failed\n");
        exit(1);
    }
    return bench::monotonic_ns() - start;
}

double median_us(std::vector<int64_t> &times)
{
    std::sort(times.begin(), times.end());
    return static_cast<double>(times[times.size() / 2]) / 1000;
}

} // namespace

int main()
{
    const bench::LinkBus bus;
    const std::string probe = LOAD_PROBE;
    Kind kinds[] = {
        {"without the library", {}, {}},
        {"with the library", {LIBRARY}, {}},
        {"with the library and the D-Bus library", {LIBRARY, "libgio-2.0.so.0"}, {}},
        {"with the library and a first link event", {LIBRARY, "event"}, {}},
    };
    if (!freopen("/dev/null", "w", stderr)) // the library's log
        return 2;
    for (int round = 0; round < kRounds; round++) { // in turn, so that a disturbance affects all kinds alike
        for (Kind &kind : kinds)
            kind.times.push_back(run(probe, kind.arguments));
    }
    const double without = median_us(kinds[0].times);
    for (Kind &kind : kinds) {
        const double time = median_us(kind.times);
        printf("a process %s: %.0f us, %.2f times one without, %+.0f us (median of %d)\n", kind.name, time,
               time / without, time - without, kRounds);
        if (&kind != kinds)
            bench::print_row((std::string("a process ") + kind.name).c_str(), "one without", time / without);
    }
    bench::print_row("a first link event, loading included", "3 ms",
                     (median_us(kinds[3].times) - median_us(kinds[1].times)) / 3000, 1);
    return 0;
}
