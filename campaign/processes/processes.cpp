// Eight processes do random operations on one board. A ninth, this one, kills them at random and checks the state that
// they leave.
//
//   processes SECONDS SEED DDALCTL
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

#include <unistd.h>

#include <ddal/atboot.h>
#include <ddal/common.h>
#include <ddal/ext.h>
#include <ddal/sshd.h>

#include "operations.h"

using namespace campaign;
namespace fs = std::filesystem;

namespace {

constexpr int kHangSeconds = 30;
constexpr int kStuckSeconds = 4; // in a link validation, after the semaphore's holder was killed

unsigned long seed;

[[noreturn]] void work(int number, unsigned long life)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Worker &worker = shared->workers[number];
    Random random(seed * 1000003 + static_cast<unsigned long>(number) * 10007 + life);
    for (;;) {
        const unsigned chosen = choose(random);
        worker.operation = chosen;
        worker.since = now();
        const int result = operations()[chosen].run(random, worker);
        worker.since = 0;
        ++worker.done;
        if (result != 0)
            fail("%s: %d", operations()[chosen].name, result);
    }
}

// The ninth process.

class Yard {
public:
    Yard(const char *ddalctl, unsigned long first_seed) : ddalctl_(ddalctl), random_(first_seed) {}

    void run(double seconds)
    {
        for (int number = 0; number < kWorkers; ++number)
            start(number);
        const int64_t began = now();
        int64_t shown = began;
        while (seconds_since(began) < seconds) {
            sleep_ms(static_cast<long>(random_() % 120));
            const int number = static_cast<int>(random_() % kWorkers);
            if (random_() % 4 == 0)
                kill_one(number);
            watch();
            if (seconds_since(shown) > 20) {
                shown = now();
                print_state();
            }
        }
        for (int number = 0; number < kWorkers; ++number)
            end_one(number);
    }

    void print_state() const
    {
        dprintf(STDOUT_FILENO, "%llu operations, %u kills, %u times unlocked, card busy %llu times, %llu failures\n",
                static_cast<unsigned long long>(done()), kills_, unlocked_,
                static_cast<unsigned long long>(shared->busy.load()),
                static_cast<unsigned long long>(shared->failures.load()));
    }

    static uint64_t done()
    {
        uint64_t total = 0;
        for (const Worker &worker : shared->workers)
            total += worker.done;
        return total;
    }

    // Prints the last two lines. Returns the exit status.
    int report() const
    {
        const uint64_t failures = shared->failures;
        dprintf(STDOUT_FILENO, "%llu points, %llu failures, %.0f s\n", static_cast<unsigned long long>(done()),
                static_cast<unsigned long long>(failures), seconds_since(began_));
        dprintf(STDOUT_FILENO, "%d passed, %d failed\n", failures == 0, failures != 0);
        return failures != 0;
    }

    // Checks that everything works for the next user, who finds no leftovers.
    void settle()
    {
        unlock();
        for (const Operation &operation : operations()) {
            std::thread alarm([&] { expect_end(operation); });
            const int result = operation.run(random_, shared->workers[0]);
            settled_ = true;
            alarm.join();
            settled_ = false;
            if (result != 0)
                fail("afterwards %s: %d", operation.name, result);
        }
        int identical = 0;
        uint32_t status = 0;
        const int upgraded = ddal_ext_rfcard_upgrade(images[0].c_str(), 0, 0, nullptr, nullptr, &status);
        const int verified = ddal_ext_rfcard_verify(images[0].c_str(), 0, nullptr, nullptr, &identical);
        if (upgraded != 0 || status > 1 || verified != 0 || identical != 1)
            fail("afterwards the card cannot be upgraded and verified: %d, status %u, %d, identical %d", upgraded,
                 status, verified, identical);
        if (ddal_atboot_run() != 0)
            fail("a start of the board fails");
        for (const char *folder : {"/etc/ssh", "/etc/pam.d", "/rom/etc/ssh", "/rom/etc/security", "/flash/config",
                                   "/ffs/run/etc/ssh", "/user/serviceuser/.ssh", "/var/log"})
            for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
                const std::string name = entry.path().filename();
                if (name.starts_with(".ddal-") || name.ends_with(".tmp"))
                    fail("left over: %s", entry.path().c_str());
            }
    }

private:
    void start(int number)
    {
        shared->workers[number].since = 0;
        const pid_t child = fork();
        if (child == 0)
            work(number, ++lives_);
        ++lives_;
        children_[number] = child;
    }

    void end_one(int number)
    {
        kill(children_[number], SIGKILL);
        waitpid(children_[number], nullptr, 0);
    }

    void kill_one(int number)
    {
        end_one(number);
        ++kills_;
        start(number);
    }

    void watch()
    {
        for (int number = 0; number < kWorkers; ++number) {
            const Worker &worker = shared->workers[number];
            const int64_t since = worker.since;
            const double seconds = since == 0 ? 0 : seconds_since(since);
            const Operation &operation = operations()[worker.operation];
            if (seconds >= kStuckSeconds && is_link_validation(operation))
                unlock();
            if (seconds < kHangSeconds)
                continue;
            fail("%s of process %d has hung for %.0f s", operation.name, number, seconds);
            kill_one(number);
        }
    }

    void expect_end(const Operation &operation) const
    {
        for (int tenths = 0; tenths < kHangSeconds * 10 && !settled_; ++tenths)
            sleep_ms(100);
        if (settled_)
            return;
        fail("afterwards %s hangs", operation.name);
        _exit(report());
    }

    // Frees the link validation as a user does after its holder was killed.
    void unlock()
    {
        char program[] = "ddalctl", family[] = "aif", verb[] = "unlock";
        char *argv[] = {program, family, verb, nullptr};
        char text[200];
        if (_ddal_common_shell_command_read(sizeof text, text, ddalctl_, argv) == 0)
            ++unlocked_;
    }

    const char *ddalctl_;
    int64_t began_ = now();
    Random random_;
    pid_t children_[kWorkers] = {};
    unsigned long lives_ = 0;
    unsigned kills_ = 0;
    unsigned unlocked_ = 0;
    std::atomic<bool> settled_ = false;
};

// Makes an image with a block of program and one with the version.
std::string make_image(int number)
{
    const std::string path =
        std::string(kScratch) + "/image-" + std::to_string(getpid()) + "-" + std::to_string(number);
    std::ofstream file(path);
    Random random(seed + static_cast<unsigned long>(number));
    for (const char *address : {"4400", "9000"}) {
        file << "@" << address << "\n";
        for (int i = 1; i <= 64; ++i) {
            char byte[4];
            snprintf(byte, sizeof byte, "%02X%c", static_cast<unsigned>(random() % 256), i % 16 ? ' ' : '\n');
            file << byte;
        }
    }
    file << "q\n";
    return path;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    seed = strtoul(argv[2], nullptr, 10);
    void *const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared = new (memory) Shared{};
    for (int number : {0, 1})
        images[number] = make_image(number);
    if (ddal_sshd_set_parameter("ClientAliveInterval", "1", 0) != 0)
        fail("the configuration cannot be prepared");
    keep_files();

    Yard yard(argv[3], seed);
    yard.run(static_cast<double>(strtoul(argv[1], nullptr, 10)));
    yard.settle();
    yard.print_state();
    return yard.report();
}
