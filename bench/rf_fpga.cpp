// Block transfers of the RF FPGA, compared with the bare system calls that they need.
#include <ddal/rf_fpga.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "bench/comparison.h"
#include "bench/system_calls.h"
#include "logic/rf_fpga_driver.h"

namespace {

constexpr int kRepetitions = 15;
constexpr uint32_t kWords = 256;
constexpr uint32_t kBlock = 4096;

uint32_t words[kWords];
uint8_t block[kBlock], clear_bits[kBlock], set_bits[kBlock];
int device = -1;

void read_256_words_by_library(benchmark::State &state)
{
    for (auto _ : state) {
        if (ddal_rf_fpga_read(0, kWords, words, 0) != kWords)
            state.SkipWithError("registers not read");
        benchmark::ClobberMemory();
    }
}

void one_pread(benchmark::State &state)
{
    for (auto _ : state) {
        if (pread(device, words, sizeof words, 0) != sizeof words)
            state.SkipWithError("registers not read");
        benchmark::ClobberMemory();
    }
}

void open_pread_close(benchmark::State &state)
{
    for (auto _ : state) {
        const int fd = open(ddal::logic::kRfFpgaNode0, O_RDONLY | O_CLOEXEC);
        if (pread(fd, words, sizeof words, 0) != sizeof words)
            state.SkipWithError("registers not read");
        close(fd);
        benchmark::ClobberMemory();
    }
}

void masked_write_4k_by_library(benchmark::State &state)
{
    for (auto _ : state) {
        if (ddal_rf_fpga_masked_write_fd(device, 0, kBlock, clear_bits, set_bits) != kBlock)
            state.SkipWithError("block not written");
    }
}

// Makes the same calls and a bare loop over the bytes.
void masked_write_4k_by_hand(benchmark::State &state)
{
    for (auto _ : state) {
        bool done = flock(device, LOCK_EX) == 0 && pread(device, block, kBlock, 0) == kBlock;
        for (uint32_t i = 0; i < kBlock; ++i)
            block[i] = static_cast<uint8_t>((block[i] & ~clear_bits[i]) | set_bits[i]);
        done = done && pwrite(device, block, kBlock, 0) == kBlock && flock(device, LOCK_UN) == 0;
        if (!done)
            state.SkipWithError("block not written");
    }
}

BENCHMARK(one_pread)->Repetitions(kRepetitions);
BENCHMARK(open_pread_close)->Repetitions(kRepetitions);
BENCHMARK(read_256_words_by_library)->Repetitions(kRepetitions);
BENCHMARK(masked_write_4k_by_hand)->Repetitions(kRepetitions);
BENCHMARK(masked_write_4k_by_library)->Repetitions(kRepetitions);

} // namespace

int main(int argc, char **argv)
{
    if (ddal_rf_fpga_open(0, &device) != 0)
        return 1;
    for (uint32_t i = 0; i < kBlock; ++i) {
        clear_bits[i] = static_cast<uint8_t>(i * 7);
        set_bits[i] = static_cast<uint8_t>(i * 13);
    }
    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("read_256_words_by_library", "one_pread", "256 words of an RF FPGA", "one pread");
    results.print_ratio("read_256_words_by_library", "open_pread_close", "256 words of an RF FPGA",
                        "open, pread and close");
    results.print_ratio("masked_write_4k_by_library", "masked_write_4k_by_hand", "a masked write of 4 KiB",
                        "pread and pwrite of 4 KiB", 1.2);
    printf("system calls in one read: %ld\n",
           bench::count_system_calls([] { ddal_rf_fpga_read(0, kWords, words, 0); }));
    ddal_rf_fpga_close(device);
    return 0;
}
