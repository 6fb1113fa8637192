// A device-tree cell read, compared with a hand-written open, read and close. A program run, compared with fork, exec
// and waitpid.
#include <ddal/common.h>

#include <endian.h>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/comparison.h"

namespace {

constexpr int kRepetitions = 9;
constexpr const char *kProgram = "/bin/true";

// A property of one cell.
class CellFile {
public:
    CellFile()
    {
        const int fd = mkstemp(path_.data());
        const uint32_t cell = htobe32(1);
        if (fd < 0 || write(fd, &cell, sizeof cell) != sizeof cell)
            abort();
        close(fd);
    }
    CellFile(const CellFile &) = delete;
    CellFile &operator=(const CellFile &) = delete;
    ~CellFile() { unlink(path_.c_str()); }
    const char *path() const { return path_.c_str(); }

private:
    std::string path_ = "/tmp/ddal-bench-XXXXXX";
};

void cell_by_hand(benchmark::State &state)
{
    const CellFile file;
    uint32_t value;
    for (auto _ : state) {
        const int fd = open(file.path(), O_RDONLY | O_CLOEXEC);
        if (read(fd, &value, sizeof value) != sizeof value)
            state.SkipWithError("cell not read");
        close(fd);
        benchmark::DoNotOptimize(value = be32toh(value));
    }
}

void cell_by_library(benchmark::State &state)
{
    const CellFile file;
    uint32_t value;
    for (auto _ : state) {
        if (ddal_common_read_u32val(&value, file.path()) != 0)
            state.SkipWithError("cell not read");
        benchmark::DoNotOptimize(value);
    }
}

void run_by_hand(benchmark::State &state)
{
    char name[] = "true";
    char *argv[] = {name, nullptr};
    for (auto _ : state) {
        int status = -1;
        const pid_t pid = fork();
        if (pid == 0) {
            execv(kProgram, argv);
            _exit(127);
        }
        if (waitpid(pid, &status, 0) != pid || status != 0)
            state.SkipWithError("program not run");
    }
}

void run_by_library(benchmark::State &state)
{
    char *argv[] = {nullptr, nullptr};
    for (auto _ : state) {
        if (_ddal_common_shell_command(kProgram, argv) != 0)
            state.SkipWithError("program not run");
    }
}

BENCHMARK(cell_by_hand)->Repetitions(kRepetitions);
BENCHMARK(cell_by_library)->Repetitions(kRepetitions);
BENCHMARK(run_by_hand)->Repetitions(kRepetitions)->UseRealTime();
BENCHMARK(run_by_library)->Repetitions(kRepetitions)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    bench::Comparison results;
    benchmark::RunSpecifiedBenchmarks(&results);
    results.print_ratio("cell_by_library", "cell_by_hand", "a cell of a property file", "open, read and close");
    results.print_ratio("run_by_library", "run_by_hand", "a program run and waited for", "fork, execv and waitpid");
    return 0;
}
