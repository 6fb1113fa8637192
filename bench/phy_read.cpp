// One PHY register read, compared with a hand-written open, pread and close of the same node, and with the cost of
// finding the node: every call reads the number of the interface's SoC port from a file.
#include <ddal/phy.h>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include <ddal/unit.h>

#include "bench/comparison.h"
#include "bench/system_calls.h"

// A bare board has no device tree with its type. The library reads it only once per process anyway.
int ddal_unit_get_board(void)
{
    return 1;
}

namespace {

constexpr int kRepetitions = 15;
constexpr uint32_t kDevice = 1; // eth0, at the first PHY of the SoC's bus
constexpr uint32_t kRegister = 2;
constexpr const char *kNode = "/sys/bus/mdio_bus/devices/2090300.mdio:00/phy_regs";
constexpr const char *kPort = "/sys/class/net/eth0/dev_id";

bool read_node(uint16_t *value)
{
    const int fd = open(kNode, O_RDONLY | O_CLOEXEC);
    const bool read = pread(fd, value, sizeof *value, kRegister * 2) == sizeof *value;
    close(fd);
    return read;
}

bool read_port(unsigned long *port)
{
    char text[16] = {};
    const int fd = open(kPort, O_RDONLY | O_CLOEXEC);
    const bool read = pread(fd, text, sizeof text - 1, 0) > 0;
    close(fd);
    *port = strtoul(text, nullptr, 0);
    return read;
}

void node_by_hand(benchmark::State &state)
{
    uint16_t value;
    for (auto _ : state) {
        if (!read_node(&value))
            state.SkipWithError("register not read");
        benchmark::DoNotOptimize(value);
    }
}

void port_and_node_by_hand(benchmark::State &state)
{
    uint16_t value;
    unsigned long port;
    for (auto _ : state) {
        if (!read_port(&port) || port != 0 || !read_node(&value))
            state.SkipWithError("register not read");
        benchmark::DoNotOptimize(value);
    }
}

void by_library(benchmark::State &state)
{
    uint16_t value;
    for (auto _ : state) {
        if (ddal_phy_read(kDevice, kRegister, 0, &value) != 0)
            state.SkipWithError("register not read");
        benchmark::DoNotOptimize(value);
    }
}

BENCHMARK(node_by_hand)->Repetitions(kRepetitions);
BENCHMARK(port_and_node_by_hand)->Repetitions(kRepetitions);
BENCHMARK(by_library)->Repetitions(kRepetitions);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("by_library", "node_by_hand", "ddal_phy_read", "open, pread and close of the node");
    results.print_ratio("by_library", "port_and_node_by_hand", "ddal_phy_read", "the interface's port and the node");
    const long calls = bench::count_system_calls([] {
        uint16_t value;
        ddal_phy_read(kDevice, kRegister, 0, &value);
    });
    bench::print_row("system calls of ddal_phy_read", "6 by hand", static_cast<double>(calls) / 6, 1);
    return 0;
}
