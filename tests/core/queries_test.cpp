// The small queries, the system information and the operations that this board lacks, on a board.
#include <ddal/atboot.h>
#include <ddal/common.h>
#include <ddal/cpu.h>
#include <ddal/log.h>
#include <ddal/mem.h>
#include <ddal/product.h>
#include <ddal/rpram.h>
#include <ddal/security.h>
#include <ddal/sysinfo.h>
#include <ddal/trbl.h>
#include <ddal/unsupported.h>
#include <ddal/version.h>
#include <ddal/wifi.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/in_child.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::ElementsAre;

namespace {

constexpr const char *kSysinfo = "/flash/config/sysinfo";

// Captures the standard error of a piece of a test that runs in a child.
class StandardError {
public:
    explicit StandardError(int flags = 0)
    {
        EXPECT_EQ(pipe2(ends_, flags), 0);
        dup2(ends_[1], STDERR_FILENO);
    }
    void fill()
    {
        const int flags = fcntl(STDERR_FILENO, F_GETFL);
        fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
        const std::string text(4096, '-');
        while (write(STDERR_FILENO, text.data(), text.size()) > 0) {
        }
        fcntl(STDERR_FILENO, F_SETFL, flags);
    }
    void close_reader() { close(ends_[0]); }
    std::string text()
    {
        char text[4096];
        const ssize_t n = read(ends_[0], text, sizeof text);
        return {text, n > 0 ? static_cast<size_t>(n) : 0};
    }

private:
    int ends_[2];
};

TEST(Log, AFailedWriteChangesNeitherTheTextNorErrno)
{
    const auto lines = in_child([] {
        std::string text;
        stderr = fopencookie(&text, "w",
                             {nullptr,
                              [](void *to, const char *from, size_t length) {
                                  static_cast<std::string *>(to)->append(from, length);
                                  errno = EIO;
                                  return static_cast<ssize_t>(length);
                              },
                              nullptr, nullptr});
        setvbuf(stderr, nullptr, _IONBF, 0);
        LogWatch log;
        errno = ENOENT;
        __ddal_log(3, "%s:%u- %m\n", "function", 1U);
        const int first = errno;
        __ddal_log(3, "%lc", wint_t{0x4E00}); // a character that this locale lacks: EILSEQ
        return std::vector<std::string>{std::to_string(first), std::to_string(errno), text.substr(0, text.find('\n')),
                                        log.take().at(0)};
    });
    EXPECT_THAT(lines, ElementsAre("2", "2", "[DDAL_ERROR] function:1- No such file or directory",
                                   "3 function: No such file or directory"));
}

TEST(Log, ABrokenStandardErrorNeitherEndsNorHoldsTheCaller)
{
    const std::pair<const char *, void (*)()> cases[] = {
        {"closed", [] { close(STDERR_FILENO); }},
        {"without a reader", [] { StandardError().close_reader(); }},
        {"full and never waiting", [] { StandardError(O_NONBLOCK).fill(); }},
        {"full", [] { StandardError().fill(); }},
    };
    for (const auto &[name, damage] : cases) {
        EXPECT_THAT(in_child([&damage = damage] {
                        damage();
                        LogWatch log;
                        const auto start = std::chrono::steady_clock::now();
                        errno = ENOENT;
                        __ddal_log(4, "%s:%u- text\n", "function", 1U);
                        const int error = errno;
                        const auto took = std::chrono::steady_clock::now() - start;
                        sigset_t signals;
                        sigpending(&signals);
                        return std::vector<std::string>{std::to_string(error), log.take().at(0),
                                                        took < std::chrono::seconds(5) ? "soon" : "late",
                                                        std::to_string(sigismember(&signals, SIGPIPE))};
                    }),
                    ElementsAre(std::to_string(ENOENT), "4 function: text", "soon", "0"))
            << name;
    }
}

TEST(Log, LinesOfSeveralThreadsStayWhole)
{
    const std::string text = in_child([]() -> std::string {
        StandardError standard_error;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([] {
                for (int line = 0; line < 200; ++line)
                    __ddal_log(3, "text\n");
            });
        std::string got;
        const std::string line = "[DDAL_ERROR] text\n";
        while (got.size() < 800 * line.size())
            got += standard_error.text();
        for (std::thread &thread : threads)
            thread.join();
        for (size_t at = 0; at < got.size(); at += line.size()) {
            if (got.compare(at, line.size(), line) != 0)
                return got.substr(at, 2 * line.size());
        }
        return "";
    });
    EXPECT_EQ(text, "");
}

TEST(Version, LosesItsSuffixOnlyOnATag)
{
    const std::string long_text(120, 'v');
    const struct {
        std::string file;
        std::string text;
    } cases[] = {{"R1.2-0-g1a2b3c\n", "R1.2"},
                 {"R1.2-0-g1a2b3c", "R1.2"},
                 {"R1.2-0-gABCDEF\n", "R1.2"},
                 {"R1-0-g12-0-gab\n", "R1-0-g12"},
                 {"R1-0-g12-0-gxy\n", "R1-0-g12-0-gxy"},
                 {"R1.2-3-g1a2b3c\n", "R1.2-3-g1a2b3c"},
                 {"R1.2-0-gxyz\n", "R1.2-0-gxyz"},
                 {"R1.2-0-g\n", "R1.2-0-g"},
                 {"R1.2-0-g12 \n", "R1.2-0-g12 "},
                 {"R1.2\n\n", "R1.2\n"},
                 {"", ""},
                 {long_text + "-0-g12345678\n", long_text} /* 127 characters are read */};
    for (const auto &c : cases) {
        put_file("/etc/version", c.file);
        for (const size_t capacity : {size_t{0}, size_t{3}, size_t{200}}) {
            std::string buffer(201, '#');
            size_t size = capacity;
            EXPECT_EQ(ddal_version_get_lfs_version(buffer.data(), &size), 0);
            EXPECT_EQ(size, c.text.size()) << c.file;
            const std::string stored = capacity == 0 ? "#" : c.text.substr(0, capacity - 1) + '\0';
            EXPECT_EQ(buffer.substr(0, stored.size()), stored) << c.file;
        }
    }
}

TEST(LinuxId, IsTheThirdCharacter)
{
    const struct {
        std::string property;
        int result;
        uint32_t id;
    } cases[] = {{std::string("os1\0", 4), 0, 1},
                 {"xx2", 0, 2},
                 {"xx7", -1001, 7},
                 {"xx0", -1001, 0},
                 {"2", -1001, static_cast<uint32_t>(-'0')}};
    for (const auto &c : cases) {
        put_file("/proc/device-tree/post/linuxid", c.property);
        uint32_t id = 99;
        LogWatch log;
        EXPECT_EQ(ddal_common_linux_id_get(&id), c.result);
        EXPECT_EQ(id, c.id);
        if (c.result) {
            EXPECT_THAT(log.take(), ElementsAre("3 ddal_common_linux_id_get: invalid linux ID: " +
                                                std::to_string(static_cast<int32_t>(c.id))));
        }
    }
    LogWatch log;
    EXPECT_EQ(ddal_common_linux_id_get(nullptr), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_common_linux_id_get: pointer to ID is null"));
}

TEST(Security, KeepsTheFirstGoodAnswer)
{
    const char *property = "/proc/device-tree/security/secure_env";
    const struct {
        const char *content;
        int result;
        uint32_t secure;
    } cases[] = {{"2", -EFAULT, 99}, {"", -EFAULT, 99}, {"1", 0, 1}, {"0", 0, 1}, {"2", 0, 1}};
    for (const auto &c : cases) {
        put_file(property, c.content);
        uint32_t secure = 99;
        EXPECT_EQ(ddal_security_is_secure_env(&secure), c.result);
        EXPECT_EQ(secure, c.secure);
    }
    uint8_t has = 9;
    EXPECT_EQ(ddal_security_has_cryptoagent(&has), 0);
    EXPECT_EQ(has, 1);
    LogWatch log;
    EXPECT_EQ(ddal_security_is_secure_env(nullptr), -EINVAL);
    EXPECT_EQ(ddal_security_has_cryptoagent(nullptr), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_security_is_secure_env: error",
                                        "3 ddal_security_has_cryptoagent: has_cryptoagent is NULL"));
}

TEST(Memory, MapsTheByteAskedForAndItsPages)
{
    EXPECT_EQ(ddal_mem_unmap_addr(&errno, 4), -EINVAL); // nothing was ever mapped
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto *first = static_cast<uint8_t *>(ddal_mem_map_addr(0x1000010, 8));
    auto *second = static_cast<uint8_t *>(ddal_mem_map_addr(0x1000000 + page - 4, 8)); // across the end of a page
    ASSERT_TRUE(first && second);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % page, 0x10U);
    first[3] = 0xA5;
    second[7] = 0x5A;
    uint8_t value = 0;
    const int fd = open("/dev/mem", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(pread(fd, &value, 1, 0x1000013), 1);
    EXPECT_EQ(value, 0xA5);
    EXPECT_EQ(pread(fd, &value, 1, static_cast<off_t>(0x1000000 + page + 3)), 1);
    EXPECT_EQ(value, 0x5A);
    ASSERT_EQ(close(fd), 0);

    EXPECT_EQ(ddal_mem_unmap_addr(nullptr, 8), -EINVAL);
    EXPECT_EQ(ddal_mem_unmap_addr(first, 8), 0);
    EXPECT_EQ(ddal_mem_unmap_addr(second, 8), 0);
    for (uint8_t *mapped : {first, second, second + 7}) {
        unsigned char there = 0;
        EXPECT_EQ(mincore(reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(mapped) / page * page), page, &there),
                  -1);
    }
    LogWatch log;
    EXPECT_EQ(ddal_mem_map_addr(0x1000000, 0), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("3 ddal_mem_map_addr: failed to map address 0x1000000 size 0x0: Invalid argument"));

    auto *high = static_cast<uint8_t *>(ddal_mem_map_addr(0xFFFF0000, 1));
    ASSERT_NE(high, nullptr); // beyond 2 GiB
    *high = 0x77;
    EXPECT_EQ(ddal_mem_unmap_addr(high, 1), 0);
}

TEST(Memory, TheRegisterSpaceIsMappedOnce)
{
    EXPECT_EQ(ddal_unmap_soc(), 0);
    const auto *mapped = static_cast<const uint8_t *>(ddal_map_soc());
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(ddal_map_soc(), mapped);
    const int fd = open("/dev/mem", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(pwrite(fd, "\x42", 1, 0x235FFFF), 1);
    close(fd);
    EXPECT_EQ(mapped[0x235FFFF], 0x42);
    EXPECT_EQ(ddal_unmap_soc(), 0);
    EXPECT_EQ(ddal_unmap_soc(), 0);
}

TEST(StartUpWord, IsZeroUntilSet)
{
    uint32_t value = 99;
    EXPECT_EQ(ddal_kvb_rpram_get_isti(5, &value), 0);
    EXPECT_EQ(value, 0U);
    for (const uint32_t set : {0x01020304U, 0xFFFFFFFFU}) {
        ASSERT_EQ(ddal_kvb_rpram_set_isti(set), 0);
        EXPECT_EQ(ddal_kvb_rpram_get_isti(5, &value), 0);
        EXPECT_EQ(value, set);
    }
    struct stat made;
    ASSERT_EQ(stat("/ram/hwapi/isti", &made), 0);
    EXPECT_EQ(made.st_mode & ALLPERMS, 0644U);
    EXPECT_EQ(made.st_size, 4);
    put_file("/ram/hwapi/isti", "12345");
    EXPECT_EQ(ddal_kvb_rpram_get_isti(5, &value), -ENODATA);
}

TEST(ClockRate, FitsThirtyTwoBits)
{
    const struct {
        const char *content;
        int result;
        uint32_t hz;
    } cases[] = {{"1228800000\n", 0, 1228800000},
                 {"4294967295", 0, UINT32_MAX},
                 {"4294967296", -ERANGE, 99},
                 {"none", -ENODATA, 99}};
    for (const auto &c : cases) {
        put_file("/sys/kernel/debug/clk/gem0/clk_rate", c.content);
        uint32_t hz = 99;
        EXPECT_EQ(ddal_cpu_get_clk_rate(&hz), c.result) << c.content;
        EXPECT_EQ(hz, c.hz);
    }
}

TEST(TroubleLog, StoresAndDeletes)
{
    EXPECT_EQ(ddal_trbl_prepare(), 0);
    EXPECT_EQ(ddal_trbl_store("evening"), 0);
    EXPECT_TRUE(std::filesystem::exists("/ram/trbl/evening"));
    EXPECT_EQ(ddal_trbl_delete("/ram/trbl/evening"), 0);
    LogWatch log;
    EXPECT_EQ(ddal_trbl_delete("/ram/trbl/evening"), -ENOENT);
    EXPECT_EQ(ddal_trbl_store(""), -1018);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_trbl_delete: unlink failed: No such file or directory",
                                        "3 ddal_trbl_store: execution of 'trbl_linux_log_store ' failed"));
}

TEST(SystemInformation, ADamagedLineKeepsTheOtherItems)
{
    put_file(kSysinfo, "# by hand\n0.13.20 = 2  # fitted\nrubbish\n1.2.3 = 7\n\n1.2.3 = 0x10");
    uint64_t value = 99;
    LogWatch log;
    EXPECT_EQ(ddal_sysinfo_get_uint(0, 13, 20, &value), 0);
    EXPECT_EQ(value, 2U);
    EXPECT_THAT(log.take(), ElementsAre("4 ddal_sysinfo: line 3 of the system information is damaged and ignored"));
    EXPECT_EQ(ddal_sysinfo_get_uint(1, 2, 3, &value), 0);
    EXPECT_EQ(value, 16U); // the later line
    EXPECT_EQ(ddal_sysinfo_get_uint(1, 2, 4, &value), -ENOENT);
    EXPECT_EQ(ddal_sysinfo_get_uint(0, 13, 20, nullptr), -EINVAL);
    EXPECT_EQ(value, 16U);

    ASSERT_EQ(ddal_sysinfo_set_uint(0, 13, 20, 1), 0);
    ASSERT_EQ(ddal_sysinfo_set_uint(1, 2, 3, UINT64_MAX), 0);
    ASSERT_EQ(ddal_sysinfo_set_uint(0, 15, 0, 4), 0);
    EXPECT_EQ(file_content(kSysinfo),
              "# by hand\n0.13.20 = 1  # fitted\nrubbish\n1.2.3 = 18446744073709551615\n\n0.15.0 = 4\n");
}

TEST(SystemInformation, StartsWithoutFileAndDirectory)
{
    std::filesystem::remove_all("/flash/config");
    uint64_t value = 99;
    LogWatch log;
    EXPECT_EQ(ddal_sysinfo_get_uint(0, 15, 0, &value), -ENOENT);
    EXPECT_EQ(value, 99U);
    ASSERT_EQ(ddal_sysinfo_set_uint(0, 15, 0, 3), 0);
    EXPECT_EQ(ddal_sysinfo_get_uint(0, 15, 0, &value), 0);
    EXPECT_EQ(value, 3U);
    EXPECT_TRUE(file_content(kSysinfo).starts_with("#"));
    EXPECT_THAT(log.take(), ElementsAre());
    EXPECT_EQ(ddal_sysinfo_update_devicetree_to_flash(), 0);
    EXPECT_TRUE(std::filesystem::exists("/flash/config/device-tree.saved"));
}

TEST(Wifi, OneAndTwoMeanFitted)
{
    for (const uint64_t value : {0ULL, 1ULL, 2ULL, 3ULL, 0x100000001ULL}) {
        ASSERT_EQ(ddal_sysinfo_set_uint(0, 13, 20, value), 0);
        EXPECT_EQ(ddal_is_wifi_supported(), value == 1 || value == 2 ? 0 : -1) << value;
    }
    unlink(kSysinfo);
    LogWatch log;
    EXPECT_EQ(ddal_is_wifi_supported(), -1);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_is_wifi_supported: ddal_sysinfo_get_uint failed to check wifi support, "
                                        "value returned: -2"));
}

TEST(StartUp, AnnouncesTheActionsInTheirOrder)
{
    const std::vector<std::string> order = {"Restore LEDs global state settings", "Restore PAM pwhistory settings",
                                            "Fix EID Discrepancies", "Init restricted root access",
                                            "export ext alarm GPIOs"};
    LogWatch log;
    ddal_atboot_run();
    std::vector<std::string> announced;
    for (const std::string &line : log.take()) {
        constexpr std::string_view kAnnounces = "6 ddal_atboot_run: Running '";
        if (line.starts_with(kAnnounces))
            announced.push_back(line.substr(kAnnounces.size(), line.rfind('\'') - kAnnounces.size()));
    }
    EXPECT_EQ(announced, order);
}

using Body = int (*)(...);

struct NamedBody {
    const char *name;
    Body body;
    int result;
};

int result_of_body(const char *body)
{
    return strcmp(body, "ddal_zero_body") == 0 ? 0 : -ENOSYS;
}

TEST(UnsupportedOperations, AllShareTheBodyOfTheirResult)
{
#define DDAL_SHARED_BODY(name, body) {#name, name, result_of_body(#body)},
    const NamedBody all[] = {
#include "unsupported_names.inc"
    };
#undef DDAL_SHARED_BODY
    size_t counts[2] = {};
    for (const NamedBody &entry : all) {
        ++counts[entry.result == 0];
        EXPECT_EQ(entry.body(-1, nullptr, "x"), entry.result) << entry.name;
        EXPECT_EQ(entry.body, entry.result == 0 ? ddal_event_open : ddal_cpri_axc_airframe_get) << entry.name;
    }
    EXPECT_EQ(counts[0], 1221U);
    EXPECT_EQ(counts[1], 12U);
    ddal_product_family_set(1);
    EXPECT_EQ(ddal_product_family_get(), 0);
}

} // namespace
