// One FPGA register read, compared with a hand-written open, pread and close of the same node.
#include <ddal/fpga.h>

#include <fcntl.h>
#include <unistd.h>

#include "bench/comparison.h"
#include "bench/system_calls.h"
#include "logic/fpga_driver.h"

namespace {

constexpr int kRepetitions = 15;
constexpr uint32_t kRegister = 0x140020;

void by_library(benchmark::State &state)
{
    uint32_t value;
    for (auto _ : state) {
        if (ddal_fpga_read(kRegister, &value) != 1)
            state.SkipWithError("register not read");
        benchmark::DoNotOptimize(value);
    }
}

void by_hand(benchmark::State &state)
{
    uint32_t value;
    for (auto _ : state) {
        const int fd = open(ddal::logic::kFpgaNode, O_RDONLY | O_CLOEXEC);
        if (pread(fd, &value, sizeof value, kRegister) != sizeof value)
            state.SkipWithError("register not read");
        close(fd);
        benchmark::DoNotOptimize(value);
    }
}

BENCHMARK(by_hand)->Repetitions(kRepetitions);
BENCHMARK(by_library)->Repetitions(kRepetitions);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("by_library", "by_hand", "ddal_fpga_read", "open, pread and close", 1.05);
    const long calls = bench::count_system_calls([] {
        uint32_t value;
        ddal_fpga_read(kRegister, &value);
    });
    bench::print_row("system calls of ddal_fpga_read", "3 by hand", static_cast<double>(calls) / 3, 1);
    return 0;
}
