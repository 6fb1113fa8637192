// Two processes write and read a register of one PHY, each on a page that only it uses. Others take the lock, select
// another page or start a command, and die. No value may be another process's, and no process may wait for good.
//
//   multiport ACCESSES KILLS ADDRESS
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/client.h"
#include "switch/external/chip.h"

namespace {

using ddal::external::Chip;
namespace external = ddal::external;

constexpr uint32_t kPort = 3;
constexpr uint32_t kRegister = 16; // of every page
constexpr uint16_t kPages[] = {5, 6};
constexpr uint16_t kPageOfTheDead = 7;
constexpr int kHangSeconds = 30;

struct Shared {
    std::atomic<uint64_t> accesses, torn, failed;
};
Shared *shared;

uint64_t seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec);
}

int access(uint16_t page, bool writes, uint16_t *value)
{
    Chip chip{__func__};
    const int rc = chip.open(true);
    if (rc != 0)
        return rc;
    return writes ? chip.write_phy(kPort, page, kRegister, *value) : chip.read_phy(kPort, page, kRegister, value);
}

// The top bit of every value names its process.
void work(unsigned number, uint64_t accesses)
{
    for (uint64_t i = 0; i < accesses; i += 2) {
        auto value = static_cast<uint16_t>(number << 15 | (i / 2 & 0x7FFF));
        const uint16_t written = value;
        if (access(kPages[number], true, &value) != 0 || access(kPages[number], false, &value) != 0)
            shared->failed++;
        else if (value != written)
            shared->torn++;
        shared->accesses += 2;
    }
}

// Dies with the lock: on another page, or while a command of the PHY or of the whole switch runs.
void die(unsigned way)
{
    Chip chip{__func__};
    if (chip.open(true) != 0)
        _exit(1);
    if (way % 3 == 0) {
        chip.on_page(kPort, kPageOfTheDead, [] { return raise(SIGKILL); });
    } else if (way % 3 == 1) {
        chip.write_register(kPort, external::kPageSelect, kPageOfTheDead);
        chip.write(external::kGlobal2, external::kPhyData, 0xDEAD);
        chip.write(external::kGlobal2, external::kPhyCommand, external::kPhyWrite | kPort << 5 | kRegister);
    } else {
        chip.write(external::kGlobal1, external::kStatsOperation, external::kStatsCapture | 1 << 5);
    }
    raise(SIGKILL);
}

template <typename Code>
pid_t start(Code code)
{
    const pid_t pid = fork();
    if (pid == 0) {
        code();
        _exit(0);
    }
    return pid;
}

// Waits for a process while others make progress. Returns its status, or -1 if everything stands still.
int wait_for(pid_t pid)
{
    uint64_t last = shared->accesses;
    for (uint64_t since = seconds(); seconds() - since < kHangSeconds; usleep(500)) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid)
            return status;
        if (shared->accesses != last) {
            last = shared->accesses;
            since = seconds();
        }
    }
    printf("process %d stands still\n", pid);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

void prepare(const char *address)
{
    std::ofstream store("/flash/config/sysinfo", std::ios::app);
    store << "0.6320.2 = " << address << "\n";
    vboard::Client client;
    client.run({"multiport", "strap", address});
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    const uint64_t accesses = strtoull(argv[1], nullptr, 0);
    const auto kills = static_cast<unsigned>(strtoul(argv[2], nullptr, 0));
    void *const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared = new (memory) Shared{};
    prepare(argv[3]);

    const uint64_t begin = seconds();
    const pid_t workers[] = {start([=] { work(0, accesses); }), start([=] { work(1, accesses); })};
    unsigned killed = 0;
    unsigned stuck = 0;
    for (unsigned i = 0; i < kills; i++) {
        const int status = wait_for(start([i] { die(i); }));
        killed += WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL && status != -1;
        stuck += status == -1;
    }
    for (const pid_t pid : workers)
        stuck += wait_for(pid) != 0;
    const uint64_t failures = shared->torn + shared->failed + stuck + (kills - killed);
    printf("%llu accesses, %llu torn, %llu failed, %u processes killed with the lock, %u deadlocks\n",
           static_cast<unsigned long long>(shared->accesses), static_cast<unsigned long long>(shared->torn),
           static_cast<unsigned long long>(shared->failed), killed, stuck);
    printf("%llu points, %llu failures, %llu s\n", static_cast<unsigned long long>(shared->accesses + kills),
           static_cast<unsigned long long>(failures), static_cast<unsigned long long>(seconds() - begin));
    printf("%d passed, %d failed\n", failures == 0, failures != 0);
    return failures != 0;
}
