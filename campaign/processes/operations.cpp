#include "operations.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/file.h>
#include <sys/syscall.h>

#include <fcntl.h>
#include <unistd.h>

#include <ddal/auth.h>
#include <ddal/boot.h>
#include <ddal/common.h>
#include <ddal/ext.h>
#include <ddal/ffs.h>
#include <ddal/rp3.h>
#include <ddal/sshd.h>
#include <ddal/sysinfo.h>

#include "core/unique_fd.h"

namespace campaign {

using ddal::core::UniqueFd;
namespace fs = std::filesystem;

Shared *shared;
std::string images[2];

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
void fail(const char *format, ...)
{
    char text[600];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    dprintf(STDOUT_FILENO, "failure: %s\n", text);
    ++shared->failures;
}

namespace {

constexpr const char *kBanner = "/etc/ssh/sshd-banner";
constexpr const char *kConfig = "/etc/ssh/sshd_config";
constexpr const char *kPam = "/etc/pam.d/common-password";
constexpr const char *kHistory = "/rom/etc/security/pwhistory_remember";
constexpr const char *kDelay = "/rom/etc/ssh/ssh_fail_login_delay";
constexpr const char *kKeys = "/user/serviceuser/.ssh/authorized_keys";
constexpr const char *kDefaultKeys = "/etc/default/serviceuser/ssh/authorized_keys";

std::string base_config, base_pam; // with the changing number as "#"

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
constexpr Operation kOperations[] = {
    {"store set", change_store, 12},       {"store get", read_store, 12},        {"boot choice", choose_boot, 4},
    {"link validation", validate_link, 8}, {"SSH option", set_ssh_option, 6},    {"SSH banner", set_banner, 6},
    {"SSH keys", reset_keys, 6},           {"password history", set_history, 6}, {"login delay", set_delay, 6},
    {"password", set_password, 3},         {"files", look_at_files, 10},         {"card version", query_card, 4},
    {"card upgrade", upgrade_card, 3},
};

} // namespace

std::span<const Operation> operations()
{
    return kOperations;
}

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

bool is_link_validation(const Operation &operation)
{
    return operation.run == validate_link;
}

void keep_files()
{
    base_config = with_hash(content(kConfig), "ClientAliveInterval ");
    base_pam = with_hash(content(kPam), "remember=");
}

} // namespace campaign
