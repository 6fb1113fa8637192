// SFP memory and diagnostics reads, compared with hand-written open, pread and close of the same files.
#include <ddal/sfp.h>

#include <fcntl.h>
#include <unistd.h>

#include <ddal/unit.h>

#include "bench/comparison.h"
#include "bench/system_calls.h"
#include "sfp/table.h"

// A bare board has no device tree with its type. The library reads it only once per process anyway.
int ddal_unit_get_board(void)
{
    return 9;
}

namespace {

using ddal::sfp::kSfpCagesOnI2c;

constexpr int kRepetitions = 15;
constexpr uint32_t kIdentity = 64;
constexpr unsigned kQuantities = DDAL_SFP_DIAG_RX_POWER + 1;
constexpr long kCallsOfAccess = 3; // open, pread, close

bool read_by_hand(const char *path, off_t offset, void *bytes, size_t size)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    const bool all = pread(fd, bytes, size, offset) == static_cast<ssize_t>(size);
    close(fd);
    return all;
}

void memory_by_hand(benchmark::State &state)
{
    uint8_t bytes[kIdentity];
    for (auto _ : state) {
        if (!read_by_hand(kSfpCagesOnI2c[0].memory[0], 0, bytes, sizeof bytes))
            state.SkipWithError("memory not read");
        benchmark::DoNotOptimize(bytes);
    }
}

void memory_by_library(benchmark::State &state)
{
    uint8_t bytes[kIdentity];
    for (auto _ : state) {
        if (ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_ID, 0, bytes, sizeof bytes) != 0)
            state.SkipWithError("memory not read");
        benchmark::DoNotOptimize(bytes);
    }
}

// Reads all quantities of an internally calibrated module. Each reads the kind of calibration and a raw value.
void diagnostics_by_hand(benchmark::State &state)
{
    const auto *memory = kSfpCagesOnI2c[0].memory;
    for (auto _ : state) {
        for (unsigned quantity = 0; quantity < kQuantities; quantity++) {
            uint8_t type = 0;
            uint8_t raw[2];
            if (!read_by_hand(memory[0], 92, &type, 1) || !read_by_hand(memory[1], 96 + 2 * quantity, raw, 2))
                state.SkipWithError("memory not read");
            const float value = static_cast<float>(raw[0] << 8 | raw[1]) * (type == 0x68 ? 0.0001f : 0.0f);
            benchmark::DoNotOptimize(value);
        }
    }
}

bool read_diagnostics(uint32_t cage)
{
    for (uint32_t quantity = 0; quantity < kQuantities; quantity++) {
        uint32_t bits;
        if (ddal_sfp_diagnostic_get(cage, quantity, &bits) != 0)
            return false;
        benchmark::DoNotOptimize(bits);
    }
    return true;
}

void diagnostics_by_library(benchmark::State &state)
{
    for (auto _ : state) {
        if (!read_diagnostics(DDAL_SFP_1))
            state.SkipWithError("diagnostics not read");
    }
}

BENCHMARK(memory_by_hand)->Repetitions(kRepetitions);
BENCHMARK(memory_by_library)->Repetitions(kRepetitions);
BENCHMARK(diagnostics_by_hand)->Repetitions(kRepetitions);
BENCHMARK(diagnostics_by_library)->Repetitions(kRepetitions);

void print_calls(const char *what, long made, long accesses)
{
    printf("system calls of %s: %ld, for %ld accesses of %ld calls each\n", what, made, accesses, kCallsOfAccess);
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("memory_by_library", "memory_by_hand", "a module's memory", "open, pread and close");
    results.print_ratio("diagnostics_by_library", "diagnostics_by_hand", "all diagnostics of a module",
                        "the same files by hand");
    print_calls("one memory read", bench::count_system_calls([] {
                    uint8_t bytes[kIdentity];
                    ddal_sfp_memory_read(DDAL_SFP_1, DDAL_SFP_MEMORY_ID, 0, bytes, sizeof bytes);
                }),
                1);
    print_calls("all diagnostics, internally calibrated",
                bench::count_system_calls([] { read_diagnostics(DDAL_SFP_1); }), 5 * 2);
    // kind of calibration, raw value, slope, offset; for the received power five coefficients
    print_calls("all diagnostics, externally calibrated",
                bench::count_system_calls([] { read_diagnostics(DDAL_SFP_2); }), 4 * 4 + 7);
    return 0;
}
