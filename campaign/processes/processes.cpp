// Eight processes do random operations on one board. A ninth, this one, kills them at random and checks the state that
// they leave.
//
//   processes SECONDS SEED DDALCTL
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <ddal/atboot.h>
#include <ddal/auth.h>
#include <ddal/boot.h>
#include <ddal/common.h>
#include <ddal/ext.h>
#include <ddal/ffs.h>
#include <ddal/rp3.h>
#include <ddal/sshd.h>
#include <ddal/sysinfo.h>

#include "core/unique_fd.h"

namespace {

using ddal::core::UniqueFd;
namespace fs = std::filesystem;

constexpr int kWorkers = 8;
constexpr int kHangSeconds = 30;
constexpr int kStuckSeconds = 4;         // in a link validation, after the semaphore's holder was killed
constexpr const char *kScratch = "/ram"; // of the board

constexpr const char *kBanner = "/etc/ssh/sshd-banner";
constexpr const char *kConfig = "/etc/ssh/sshd_config";
constexpr const char *kPam = "/etc/pam.d/common-password";
constexpr const char *kHistory = "/rom/etc/security/pwhistory_remember";
constexpr const char *kDelay = "/rom/etc/ssh/ssh_fail_login_delay";
constexpr const char *kKeys = "/user/serviceuser/.ssh/authorized_keys";
constexpr const char *kDefaultKeys = "/etc/default/serviceuser/ssh/authorized_keys";
constexpr const char *kLinkLog = "/var/log/kvbinit.log";

struct Worker {
    std::atomic<int64_t> since; // nanoseconds; 0 between operations
    std::atomic<unsigned> operation;
    std::atomic<uint64_t> done;
    // Of its item in the store: the last value that it may have, and the value that it has.
    std::atomic<uint64_t> tried, stored;
};

// Shared by all processes.
struct Shared {
    Worker workers[kWorkers];
    std::atomic<uint64_t> failures;
    std::atomic<uint64_t> busy; // refusals because another process had the card
    std::atomic<int> flashed;   // image in the card; -1 from the start of an upgrade until its success
};
Shared *shared;

std::string images[2];
std::string base_config, base_pam; // with the changing number as "#"
unsigned long seed;

// Returns the seconds of the machine; those of the board pass faster.
int64_t now()
{
    timespec time{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

double seconds_since(int64_t start)
{
    return static_cast<double>(now() - start) / 1e9;
}

void sleep_ms(long milliseconds)
{
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &time, nullptr);
}

[[gnu::format(printf, 1, 2)]] void fail(const char *format, ...)
{
    char text[600];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    dprintf(STDOUT_FILENO, "failure: %s\n", text);
    ++shared->failures;
}

std::string content(const char *path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Replaces the number of an option by "#", in a file where only that number may change.
std::string with_hash(const std::string &text, const char *option)
{
    return std::regex_replace(text, std::regex(std::string("(") + option + ")[0-9]+"), "$1#");
}

std::string banner(uint64_t number)
{
    const std::string line = "banner " + std::to_string(number) + "\n";
    std::string text;
    for (uint64_t i = 0; i < 20 + number % 300; ++i)
        text += line;
    return text;
}

bool is_banner(const std::string &text)
{
    return text == "Authorised use only.\n" ||
           (text.starts_with("banner ") && text == banner(strtoull(&text[7], nullptr, 10)));
}

// Lets one process at a time do an operation that takes no lock, as its callers must ensure. After a killed process its
// last program also gets the time to end.
class Turn {
public:
    explicit Turn(const char *what)
        : fd_(open((std::string(kScratch) + what).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        char mark = 0;
        flock(fd_.get(), LOCK_EX);
        if (pread(fd_.get(), &mark, 1, 0) == 1 && mark == kAtWork)
            sleep_ms(300);
        set(kAtWork);
    }
    ~Turn() { set('-'); }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

private:
    static constexpr char kAtWork = '+';

    void set(char mark)
    {
        if (pwrite(fd_.get(), &mark, 1, 0) != 1)
            fail("a lock file cannot be written");
    }

    UniqueFd fd_;
};

// Operations. Each returns its result and reports faults itself.

using Random = std::mt19937_64;

int change_store(Random &, Worker &worker)
{
    const uint64_t value = worker.tried + 1;
    worker.tried = value;
    const int result = ddal_sysinfo_set_uint(0, 60, static_cast<uint32_t>(&worker - shared->workers), value);
    if (result == 0)
        worker.stored = value;
    return result;
}

int read_store(Random &random, Worker &)
{
    const auto other = static_cast<uint32_t>(random() % kWorkers);
    const uint64_t least = shared->workers[other].stored;
    uint64_t value = 0;
    const int result = ddal_sysinfo_get_uint(0, 60, other, &value);
    if (result == -ENOENT && least == 0)
        return 0;
    const uint64_t most = shared->workers[other].tried;
    if (result == 0 && (value < least || value > most))
        fail("the store has %llu for process %u, which stored %llu to %llu", static_cast<unsigned long long>(value),
             other, static_cast<unsigned long long>(least), static_cast<unsigned long long>(most));
    return result;
}

// The cells are written in place, and the scripts belong to the platform. After a kill in them the next start repairs
// the choice.
void mend_boot_choice()
{
    const std::string flash = "/dev/flash/by-name/";
    if (fs::exists(flash + "swapped")) {
        if (!fs::exists(flash + "p_boot_header"))
            fs::rename(flash + "s_boot_header", flash + "p_boot_header");
        fs::rename(flash + "swapped", flash + "s_boot_header");
    }
    const char *const cell = "/proc/device-tree/uboot/linux_active_partition";
    if (fs::file_size(cell) == 0) {
        const uint32_t first = 1;
        ddal_common_write_u32val(&first, cell);
    }
}

int choose_boot(Random &random, Worker &)
{
    const Turn turn("/boot");
    mend_boot_choice();
    const uint32_t wanted = random() % 2 ? DDAL_FFS_1 : DDAL_FFS_2;
    const int result = ddal_boot_set_linux_active(wanted);
    uint32_t active = 0;
    if (result == 0 && (ddal_boot_get_linux_active(&active) != 0 || active != wanted))
        fail("the active partition is %u after %u was chosen", active, wanted);
    return result;
}

int validate_link(Random &random, Worker &)
{
    return ddal_rp3_validate_aif(("process " + std::to_string(random() % 1000)).c_str(), 1, nullptr, 0);
}

int set_ssh_option(Random &random, Worker &)
{
    return ddal_sshd_set_parameter("ClientAliveInterval", std::to_string(random() % 65536).c_str(), random() % 2);
}

int set_banner(Random &random, Worker &)
{
    return ddal_sshd_set_banner(banner(random() % 1000000).c_str());
}

int reset_keys(Random &, Worker &)
{
    return ddal_auth_reset_user_ssh_keys("serviceuser");
}

int set_history(Random &random, Worker &)
{
    return ddal_auth_set_password_history_len(static_cast<uint32_t>(1 + random() % 99));
}

int set_delay(Random &random, Worker &)
{
    return ddal_auth_set_login_faildelay(static_cast<uint32_t>(random() % 9000000));
}

int set_password(Random &random, Worker &)
{
    const Turn turn("/password"); // the tool belongs to the platform
    char reason[200];
    const std::string password = "long-enough-" + std::to_string(random());
    return ddal_auth_set_user_password("serviceuser", password.c_str(), reason, sizeof reason);
}

void check_file(const char *path, bool whole)
{
    if (!whole)
        fail("%s is none of the versions that were written: '%.200s'", path, content(path).c_str());
}

bool is_number(const char *path)
{
    // Empty after a first change that was cut short: no number is stored.
    return !fs::exists(path) || std::regex_match(content(path), std::regex("([0-9]+\n)?"));
}

int look_at_files(Random &, Worker &)
{
    check_file(kBanner, is_banner(content(kBanner)));
    check_file(kConfig, with_hash(content(kConfig), "ClientAliveInterval ") == base_config);
    check_file(kPam, with_hash(content(kPam), "remember=") == base_pam);
    check_file(kHistory, is_number(kHistory));
    check_file(kDelay, is_number(kDelay));
    check_file(kKeys, !fs::exists(kKeys) || content(kKeys) == content(kDefaultKeys));
    return 0;
}

int is_card_busy(int result)
{
    shared->busy += result == -EBUSY;
    return result == -EBUSY ? 0 : result;
}

int query_card(Random &, Worker &)
{
    uint8_t loader[4], application[8];
    return is_card_busy(ddal_ext_rfcard_version(loader, application, 0));
}

int upgrade_card(Random &random, Worker &)
{
    const int image = random() % 2;
    uint32_t status = 0;
    const auto begun = [](void *, ddal_ext_rfcard_phase phase, uint32_t, uint32_t) {
        if (phase == DDAL_EXT_RFCARD_ERASE)
            shared->flashed = -1;
    };
    const int result = ddal_ext_rfcard_upgrade(images[image].c_str(), 0, 0, begun, nullptr, &status);
    if (result == 0 && status > 1)
        fail("the card has status %u after an upgrade that nobody cut short", status);
    if (result == 0)
        shared->flashed = image;
    return is_card_busy(result);
}

struct Operation {
    const char *name;
    int (*run)(Random &, Worker &);
    unsigned share; // relative frequency
};

constexpr Operation kOperations[] = {
    {"store set", change_store, 12},       {"store get", read_store, 12},        {"boot choice", choose_boot, 4},
    {"link validation", validate_link, 8}, {"SSH option", set_ssh_option, 6},    {"SSH banner", set_banner, 6},
    {"SSH keys", reset_keys, 6},           {"password history", set_history, 6}, {"login delay", set_delay, 6},
    {"password", set_password, 3},         {"files", look_at_files, 10},         {"card version", query_card, 4},
    {"card upgrade", upgrade_card, 3},
};

unsigned choose(Random &random)
{
    unsigned total = 0;
    for (const Operation &operation : kOperations)
        total += operation.share;
    unsigned at = static_cast<unsigned>(random() % total);
    unsigned chosen = 0;
    for (; at >= kOperations[chosen].share; ++chosen)
        at -= kOperations[chosen].share;
    return chosen;
}

[[noreturn]] void work(int number, unsigned long life)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Worker &worker = shared->workers[number];
    Random random(seed * 1000003 + static_cast<unsigned long>(number) * 10007 + life);
    for (;;) {
        const unsigned chosen = choose(random);
        worker.operation = chosen;
        worker.since = now();
        const int result = kOperations[chosen].run(random, worker);
        worker.since = 0;
        ++worker.done;
        if (result != 0)
            fail("%s: %d", kOperations[chosen].name, result);
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
                static_cast<unsigned long long>(operations()), kills_, unlocked_,
                static_cast<unsigned long long>(shared->busy.load()),
                static_cast<unsigned long long>(shared->failures.load()));
    }

    uint64_t operations() const
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
        dprintf(STDOUT_FILENO, "%llu points, %llu failures, %.0f s\n", static_cast<unsigned long long>(operations()),
                static_cast<unsigned long long>(failures), seconds_since(began_));
        dprintf(STDOUT_FILENO, "%d passed, %d failed\n", failures == 0, failures != 0);
        return failures != 0;
    }

    // Checks that everything works for the next user, who finds no leftovers.
    void settle()
    {
        unlock();
        for (const Operation &operation : kOperations) {
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
            const char *const name = kOperations[worker.operation].name;
            if (seconds >= kStuckSeconds && worker.operation == kLinkValidation)
                unlock();
            if (seconds < kHangSeconds)
                continue;
            fail("%s of process %d has hung for %.0f s", name, number, seconds);
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

    static constexpr unsigned kLinkValidation = 3;
    static_assert(kOperations[kLinkValidation].run == validate_link);

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
    base_config = with_hash(content(kConfig), "ClientAliveInterval ");
    base_pam = with_hash(content(kPam), "remember=");

    Yard yard(argv[3], seed);
    yard.run(static_cast<double>(strtoul(argv[1], nullptr, 10)));
    yard.settle();
    yard.print_state();
    return yard.report();
}
