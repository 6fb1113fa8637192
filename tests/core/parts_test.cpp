// The small parts: texts, copies, directories, lines of the system information, order of the start-up actions.
#include <ddal/atboot.h>
#include <ddal/error.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "core/atboot.h"
#include "core/copy.h"
#include "core/directory.h"
#include "core/sysinfo_file.h"
#include "core/text.h"
#include "support/in_child.h"
#include "temporary_directory.h"

using namespace ddal::core;

namespace {

TEST(Text, BoundedCopiesEndInNulAndReturnTheLength)
{
    const struct {
        size_t size;
        const char *stored;
    } cases[] = {{0, ""}, {1, ""}, {3, "ab"}, {6, "abcde"}, {7, "abcde"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.size);
        char copied[8] = "#######";
        EXPECT_EQ(ddal_common_strlcpy(copied, "abcde", c.size), 5U);
        EXPECT_STREQ(copied, c.size == 0 ? "#######" : c.stored);
        char printed[8] = "#######";
        EXPECT_EQ(ddal_common_scnprintf(printed, c.size, "ab%s", "cde"), static_cast<int>(strlen(c.stored)));
        EXPECT_STREQ(printed, copied);
    }
}

TEST(Text, OtherCodesHaveTheTextOfTheSystem)
{
    const struct {
        int code;
        const char *text;
    } cases[] = {{5, "success"},
                 {INT_MAX, "success"},
                 {-ENOENT, "No such file or directory"},
                 {-1001, "ddal failure (cause unknown)"},
                 {-1003, "ddal timeout"},
                 {-1004, "Unknown error 1004"},
                 {-1005, "Unknown error 1005"},
                 {-1006, "ddal fpga invalid FPGA id specified"},
                 {-1017, "ddal fpga 'update' image not active, no version available"},
                 {-1018, "Unknown error 1018"},
                 {INT_MIN, "Unknown error -2147483648"}};
    for (const auto &c : cases) {
        char text[80];
        EXPECT_EQ(ddal_strerror(c.code, text, sizeof text), 0);
        EXPECT_STREQ(text, c.text);
        char cut[6] = "#####";
        ddal_strerror(c.code, cut, 5);
        EXPECT_EQ(std::string(cut), std::string(c.text).substr(0, 4));
        char untouched = '#';
        EXPECT_EQ(ddal_strerror(c.code, &untouched, 0), 0);
        EXPECT_EQ(untouched, '#');
    }
}

TEST(Copy, KeepsContentAndModeAndReportsFailures)
{
    const TemporaryDirectory directory;
    const std::string content = std::string(8192, 'a') + std::string(8192, 'b') + "end";
    const std::string from = directory.put("from", content);
    ASSERT_EQ(chmod(from.c_str(), 04750), 0);
    ASSERT_EQ(ddal_common_copy_file(from.c_str(), (directory / "to").c_str()), 0);
    EXPECT_EQ(directory.get("to"), content);
    struct stat copied;
    ASSERT_EQ(stat((directory / "to").c_str(), &copied), 0);
    EXPECT_EQ(copied.st_mode & ALLPERMS,
              geteuid() == 0 ? 04750U : 0750U); // only root writes to a file with these bits and keeps them

    EXPECT_EQ(ddal_common_copy_file((directory / "none").c_str(), (directory / "x").c_str()), -ENOENT);
    EXPECT_EQ(ddal_common_copy_file(from.c_str(), (directory / "no/x").c_str()), -ENOENT);
    EXPECT_EQ(ddal_common_copy_file((directory / "").c_str(), (directory / "x").c_str()), EISDIR); // positive

    // A later change of owner would clear the set-user-id bit.
    ASSERT_EQ(chmod(from.c_str(), 04750), 0);
    ASSERT_EQ(ddal_common_copy_file(from.c_str(), (directory / "to").c_str()), 0);
    ASSERT_EQ(stat((directory / "to").c_str(), &copied), 0);
    EXPECT_EQ(copied.st_mode & ALLPERMS, 04750U);

    const std::unique_ptr<FILE, int (*)(FILE *)> source(fopen(from.c_str(), "r"), fclose);
    const std::unique_ptr<FILE, int (*)(FILE *)> full(fopen("/dev/full", "w"), fclose);
    EXPECT_EQ(ddal_common_copy_stream(source.get(), full.get()), -ENOSPC);
    cookie_io_functions_t takes_nothing{}; // and sets no errno
    takes_nothing.write = [](void *, const char *, size_t) -> ssize_t { return 0; };
    const std::unique_ptr<FILE, int (*)(FILE *)> mute(fopencookie(nullptr, "w", takes_nothing), fclose);
    setvbuf(mute.get(), nullptr, _IONBF, 0);
    rewind(source.get());
    errno = EPERM;
    EXPECT_EQ(ddal_common_copy_stream(source.get(), mute.get()), -EFBIG);

    directory.put(".ddal-abcdef", ""); // of a killed writer
    EXPECT_EQ(ddal_common_copy_file(from.c_str(), (directory / "to").c_str()), 0);
    EXPECT_EQ(directory.names(), (std::set<std::string>{"from", "to"}));
}

TEST(Copy, SurvivesAStandardErrorWithoutAReader)
{
    EXPECT_EQ(testing_board::in_child([]() -> std::string {
                  int ends[2];
                  if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0 || close(ends[0]) != 0)
                      return "no pipe";
                  signal(SIGPIPE, SIG_DFL);
                  return std::to_string(ddal_common_copy_file("/none", "/tmp/none"));
              }),
              std::to_string(-ENOENT));
}

// The user may exchange any component below the trusted folder during the copy. The copy must not leave the folder.
TEST(Copy, DoesNotFollowLinksBelowATrustedFolder)
{
    const TemporaryDirectory directory;
    const std::string from = directory.put("from", "new");
    const std::string home = directory / "home", spare = directory / "spare";
    for (const char *folder : {"real", "real/.ssh", "other"})
        ASSERT_EQ(mkdir((directory / folder).c_str(), 0755), 0);
    directory.put("other/keys", "other");
    ASSERT_EQ(symlink("real", home.c_str()), 0) << "a link above is not the user's";
    ASSERT_EQ(symlink((directory / "other").c_str(), spare.c_str()), 0);
    const std::string folder = home + "/.ssh", keys = folder + "/keys";

    std::atomic<bool> over{false};
    std::thread user([&] {
        while (!over)
            renameat2(AT_FDCWD, spare.c_str(), AT_FDCWD, folder.c_str(), RENAME_EXCHANGE);
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int copied = 0, refused = 0;
    while ((copied < 100 || refused < 100) && std::chrono::steady_clock::now() < end) {
        const int result = copy_file_below(from.c_str(), keys.c_str(), home.size());
        ASSERT_TRUE(result == 0 || result == -ENOTDIR || result == -ELOOP) << result;
        ++(result == 0 ? copied : refused);
    }
    over = true;
    user.join();
    std::printf("%d copies, %d refusals\n", copied, refused);
    EXPECT_GT(copied, 0);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(directory.get("other/keys"), "other");
    const std::filesystem::directory_iterator entries(directory / "other"), none;
    EXPECT_EQ(std::distance(entries, none), 1);
}

TEST(Directory, CreatesMissingFolders)
{
    const TemporaryDirectory directory;
    directory.put("file", "");
    const struct {
        std::string path;
        int result;
    } cases[] = {
        {"relative", -EINVAL},
        {"", -EINVAL},
        {"/", 0},
        {directory / "a/./b//c/", 0},
        {directory / "a/b/c", 0},
        {directory / "d/../e", 0},
        {directory / "file", -ENOTDIR},
        {directory / "file/x", -ENOTDIR},
        {directory / std::string(255, 'n'), 0},
        {directory / ("f/" + std::string(256, 'n')), -ENAMETOOLONG},
    };
    for (const auto &c : cases) {
        const auto before = open_descriptors();
        EXPECT_EQ(ddal_common_mkdir_p(c.path.c_str(), 0700), c.result) << c.path;
        EXPECT_EQ(open_descriptors(), before) << c.path;
    }
    for (const char *name : {"a/b/c", "d", "e"})
        EXPECT_TRUE(std::filesystem::is_directory(directory / name)) << name;
    EXPECT_FALSE(std::filesystem::exists("relative"));
}

TEST(SystemInformation, AcceptsOnlyHandWrittenLinesOfTheFormat)
{
    using Kind = SysinfoLine::Kind;
    const struct {
        std::string_view text;
        Kind kind;
        uint64_t value = 0;
        std::string_view tail = {};
    } cases[] = {
        {"0.13.20 = 1", Kind::item, 1},
        {"\t0.13.20=0x1F  # note\r", Kind::item, 31, "  # note\r"},
        {"0.13.20 = 18446744073709551615", Kind::item, UINT64_MAX},
        {"0.13.20 = 010", Kind::item, 10},
        {"", Kind::empty},
        {" \t\r", Kind::empty},
        {"# 0.13.20 = 1", Kind::empty},
        {"0.13.20 = 18446744073709551616", Kind::damaged},
        {"4294967296.13.20 = 1", Kind::damaged},
        {"0.13.20 = -1", Kind::damaged},
        {"0.13.20 = 0x", Kind::damaged},
        {"0.13.20 = 1 2", Kind::damaged},
        {"0.13.20 1", Kind::damaged},
        {"0.13 = 1", Kind::damaged},
        {std::string_view("0.13.20 = 1\0", 12), Kind::damaged},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.text));
        const SysinfoLine line = parse_sysinfo_line(c.text);
        ASSERT_EQ(line.kind, c.kind);
        EXPECT_EQ(line.is({0, 13, 20}), c.kind == Kind::item);
        if (c.kind == Kind::item) {
            EXPECT_EQ(line.value, c.value);
            EXPECT_EQ(line.tail, c.tail);
        }
    }
}

std::string run_order;

int first_place()
{
    run_order += "1";
    return 0;
}

int second_place()
{
    run_order += "2";
    return -22;
}

int fourth_place()
{
    run_order += "4";
    return 44;
}

// Registered in another order than their places. The library itself fills places 3 and 5.
DDAL_ATBOOT_HOOK(root_access, fourth_place, "fourth")
DDAL_ATBOOT_HOOK(leds, first_place, "first")
DDAL_ATBOOT_HOOK(password_history, second_place, "second")

TEST(StartUp, RunsEveryActionInOrderAndReturnsTheLastFailure)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(ddal_atboot_run(), 44);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(run_order, "124");
    size_t at = 0;
    for (const char *text : {"'first'", "'second'", "'second' returned -22", "'Fix EID Discrepancies'", "'fourth'",
                             "'fourth' returned 44", "'export ext alarm GPIOs'"}) {
        at = log.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << " is missing or out of order in\n" << log;
        ++at;
    }
}

} // namespace
