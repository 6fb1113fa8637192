// The log, the system information, start-up and the operations that this board lacks, on a board.
#include <ddal/atboot.h>
#include <ddal/diagnosis.h>
#include <ddal/fpga.h>
#include <ddal/log.h>
#include <ddal/product.h>
#include <ddal/sysinfo.h>
#include <ddal/unsupported.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
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

TEST(Log, GoesToTheHandlerOfTheApplicationAndToTheSystemLog)
{
    EXPECT_THAT(in_child([] {
                    std::vector<std::string> seen;
                    StandardError standard_error(O_NONBLOCK);
                    LogWatch log;
                    const auto keep = [](void *user, int priority, const char *line) {
                        static_cast<std::vector<std::string> *>(user)->push_back(std::to_string(priority) + line);
                        errno = EIO;
                    };
                    ddal_ext_set_log_handler(keep, &seen);
                    errno = ENOENT;
                    __ddal_log(4, "%s:%u- %m", "function", 1U);
                    seen.push_back(std::to_string(errno));
                    __ddal_log(6, "%s", std::string(2000, 'x').c_str());
                    seen.back() = std::to_string(seen.back().size());
                    seen.push_back(log.take().at(0));
                    ddal_ext_set_log_handler(nullptr, nullptr);
                    seen.push_back("not on standard error: " + standard_error.text());
                    __ddal_log(3, "back");
                    seen.push_back(standard_error.text());
                    return seen;
                }),
                ElementsAre("4function:1- No such file or directory", "2", "1024",
                            "4 function: No such file or directory", "not on standard error: ", "[DDAL_ERROR] back"));
}

TEST(Log, ChangesItsHandlerWhileThreadsWrite)
{
    std::atomic<uint64_t> wrong{0};
    std::atomic<uint64_t> ignored{0};
    std::atomic<int> writing{3};
    const auto other = [](void *user, int, const char *) { ++*static_cast<std::atomic<uint64_t> *>(user); };
    const auto own = [](void *user, int, const char *line) {
        *static_cast<std::atomic<uint64_t> *>(user) += *line != 't';
    };
    ddal_ext_set_log_handler(other, &ignored);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int line = 0; line < 2000; ++line)
                __ddal_log(7, "text\n");
            --writing;
        });
    while (writing > 0) {
        ddal_ext_set_log_handler(own, &wrong);
        ddal_ext_set_log_handler(other, &ignored);
    }
    for (std::thread &thread : threads)
        thread.join();
    ddal_ext_set_log_handler(nullptr, nullptr);
    EXPECT_GT(ignored, 0U);
    EXPECT_EQ(wrong, 0U); // a handler never meets the other one's user
}

TEST(LastFailure, TellsOperationPathAndCause)
{
    const auto failure_after = [](const char *fault, void (*operation)()) {
        ddal_ext_last_failure(nullptr);
        {
            const Fault injected(fault);
            operation();
        }
        ddal_ext_failure last{};
        ddal_ext_last_failure(&last);
        return std::string(last.operation) + " " + last.path + " " + std::to_string(last.error) + " " +
               std::to_string(last.code);
    };
    const auto read = [] {
        uint32_t value;
        ddal_fpga_read(0, &value);
    };
    const auto read_unaligned = [] {
        uint32_t value;
        ddal_fpga_read(2, &value);
    };
    const auto get_item = [] {
        uint64_t value;
        ddal_sysinfo_get_uint(1, 2, 3, &value);
    };
    EXPECT_EQ(failure_after("pread:/dev/fpga_usr errno=EIO", read), "ddal_fpga_read /dev/fpga_usr 5 -5");
    EXPECT_EQ(failure_after("pread:/dev/fpga_usr short=0", read), "ddal_fpga_read /dev/fpga_usr 0 -1001");
    EXPECT_EQ(failure_after("open:/dev/fpga_usr errno=EACCES", read), "ddal_fpga_read /dev/fpga_usr 13 -13");
    EXPECT_EQ(failure_after("*:nothing errno=EIO", read_unaligned), "ddal_fpga_read  0 -14");
    EXPECT_EQ(failure_after("*:nothing errno=EIO", read), "  0 0"); // nothing failed
    EXPECT_EQ(failure_after(("open:" + std::string(kSysinfo) + " errno=EACCES").c_str(), get_item),
              "ddal_sysinfo_get_uint /flash/config/sysinfo 13 -13");

    std::thread([] { // other threads have other failures
        ddal_ext_failure last{};
        ddal_ext_last_failure(&last);
        EXPECT_EQ(last.code, 0);
    })
        .join();
    EXPECT_STREQ(ddal_ext_version(), DDAL_VERSION);
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
