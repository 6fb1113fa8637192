// Frame number and frame-locked clock within a frame, compared with a bare counter read and the system's clock.
#include <ddal/clock.h>
#include <ddal/sfn.h>

#include <ctime>

#include "bench/comparison.h"
#include "bench/system_calls.h"
#include "core/cpu_counter.h"

namespace {

constexpr int kRepetitions = 7;
constexpr int kCountedCalls = 100'000;

void counter_read(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ddal::core::cpu_counter());
}

void clock_gettime_monotonic(benchmark::State &state)
{
    timespec now;
    for (auto _ : state) {
        clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    }
}

void sfn_get_bcn(benchmark::State &state)
{
    uint64_t bcn;
    uint32_t offset;
    timespec start;
    for (auto _ : state) {
        if (ddal_sfn_get_bcn(&bcn, &offset, &start) != 0)
            state.SkipWithError("no frame information");
        benchmark::DoNotOptimize(bcn);
        benchmark::DoNotOptimize(offset);
        benchmark::DoNotOptimize(start);
    }
}

void ddal_clock_gettime_monotonic(benchmark::State &state)
{
    timespec now;
    for (auto _ : state) {
        ddal_clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    }
}

BENCHMARK(counter_read)->Repetitions(kRepetitions);
BENCHMARK(clock_gettime_monotonic)->Repetitions(kRepetitions);
BENCHMARK(sfn_get_bcn)->Repetitions(kRepetitions);
BENCHMARK(ddal_clock_gettime_monotonic)->Repetitions(kRepetitions);

void many_calls()
{
    uint64_t bcn;
    timespec now;
    for (int i = 0; i < kCountedCalls; i++) {
        ddal_sfn_get_bcn(&bcn, nullptr, nullptr);
        ddal_clock_gettime(CLOCK_MONOTONIC, &now);
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("sfn_get_bcn", "counter_read", "ddal_sfn_get_bcn within a frame", "a read of the counter", 1.5);
    results.print_ratio("ddal_clock_gettime_monotonic", "counter_read", "ddal_clock_gettime within a frame",
                        "a read of the counter", 1.5);
    results.print_ratio("ddal_clock_gettime_monotonic", "clock_gettime_monotonic", "ddal_clock_gettime within a frame",
                        "clock_gettime");
    printf("system calls in %d calls of each: %ld\n", kCountedCalls, bench::count_system_calls(many_calls));
    return 0;
}
