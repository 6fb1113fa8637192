// Every failure of every call that the core's internal parts make: replacement of files, copies, directories.
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <list>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/atomic_file.h"
#include "core/copy.h"
#include "core/directory.h"
#include "file_lock.h"
#include "support/board.h"
#include "support/board_file.h"
#include "support/sweep.h"

using namespace ddal::core;
using namespace testing_board;

namespace {

constexpr const char *kFolder = "/flash/swept";
constexpr const char *kFile = "/flash/swept/file";
const std::string kOld(100000, 'o'); // more than one round of the copy inside the kernel

int replace(const char *mode)
{
    ddal_common_atomic_file *file = ddal_common_atomic_open(kFile, mode);
    if (!file)
        return -errno;
    fputs("NEW", ddal_common_atomic_writer(file));
    return ddal_common_atomic_close(file, 1);
}

std::string replaced(const char *mode)
{
    switch (mode[0]) {
    case 'w': return "NEW";
    case 'a': return kOld + "NEW";
    default: return "NEW" + kOld.substr(3);
    }
}

class AtomicFileOnBoard : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(kFolder);
        put_file(kFile, kOld);
    }
    void TearDown() override { std::filesystem::remove_all(kFolder); }
};

TEST_F(AtomicFileOnBoard, AFailureLeavesOnlyTheOldFile)
{
    const Expectation silent = fails_with_errno_or(-EIO, {});
    // Two rounds of the copy inside the kernel, in and out, and a third read that sees the end.
    const auto splice = [turn = 0](const Injected &injected, const Outcome &success) mutable {
        const char *line = turn++ % 2 == 0 ? "3 copy_file_splice: splice in: %m" : "3 copy_file_splice: splice out: %m";
        return fails_with_errno(line)(injected, success);
    };
    for (const char *mode : {"w", "a", "r+"}) {
        Sweep sweep(std::string("replacement, mode ") + mode, [&] { return replace(mode); });
        sweep.before([] { put_file(kFile, kOld); })
            .after([&](const Outcome &seen) {
                EXPECT_TRUE(file_content(kFile) == (seen.result == 0 ? replaced(mode) : kOld));
                EXPECT_TRUE(is_unlocked(kFile));
            })
            .watch({kFolder})
            .when("fwrite", fails(-EIO, {})) // the test's write; the flush of the stream reports it
            .when("splice/EIO", splice)
            .when("flock/ENOLCK", silent)
            .when("fsync:" + std::string(kFolder), changes_nothing()) // the replacement is already in place
            .when("fclose", changes_nothing());
        for (const char *call : {"open", "fstat", "stat", "fdopen", "lseek", "pipe", "fflush", "fsync", "fchmod",
                                 "fchown", "link", "rename"})
            sweep.when(call, silent);
        sweep.run();
    }
}

TEST_F(AtomicFileOnBoard, FallsBackWhereTheFirstCallIsRefused)
{
    const std::string no_anonymous = "open:/flash/swept nth=2 errno=EOPNOTSUPP"; // the first opens the folder itself
    const struct {
        std::vector<std::string> faults;
        int result;
    } cases[] = {
        {{no_anonymous}, 0},
        {{"open:/flash/swept nth=2 errno=EISDIR"}, 0}, // the kernel does not know anonymous files
        {{"open:/flash/swept nth=2 errno=ENOSPC"}, -ENOSPC},
        {{no_anonymous, "open:/flash/swept/.ddal-* errno=EEXIST count=20"}, 0},
        {{no_anonymous, "open:/flash/swept/.ddal-* errno=EROFS"}, -EROFS},
        {{no_anonymous, "rename errno=EIO"}, -EIO},
        {{"link errno=ENOENT"}, 0}, // linking a descriptor lacks the privilege
        {{"link errno=EPERM count=2"}, -EPERM},
        {{"link errno=EEXIST count=20"}, 0}, // another writer took the names
        {{no_anonymous, "link errno=EEXIST"}, 0},
        {{"splice errno=EAGAIN"}, 0},
        {{"splice nth=2 errno=EAGAIN"}, 0},
        {{"splice nth=2 errno=EINTR count=3"}, 0},
        {{"splice nth=2 errno=EAGAIN count=2"}, -EAGAIN}, // refused even as a blocking call
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.faults));
        put_file(kFile, kOld);
        const Resources resources({kFolder});
        {
            std::list<Fault> faults;
            for (const std::string &rule : c.faults)
                faults.emplace_back(rule);
            EXPECT_EQ(replace("a"), c.result);
            for (const Fault &fault : faults)
                EXPECT_GT(fault.fired(), 0U);
        }
        EXPECT_TRUE(file_content(kFile) == (c.result == 0 ? replaced("a") : kOld));
        EXPECT_EQ(resources.difference(), "");
    }
}

TEST_F(AtomicFileOnBoard, KeepsTheNamedTemporaryOfALiveWriter)
{
    ddal_common_atomic_file *slow = nullptr;
    {
        const Fault no_anonymous("open:/flash/swept nth=2 errno=EOPNOTSUPP");
        slow = ddal_common_atomic_open(kFile, "w");
        ASSERT_EQ(no_anonymous.fired(), 1u);
    }
    ASSERT_NE(slow, nullptr);
    put_file("/flash/swept/other", "old");
    const AtomicFile other{"/flash/swept/other", "w"};
    EXPECT_EQ(Resources({kFolder}).difference(), "");
    fputs("NEW", ddal_common_atomic_writer(slow));
    EXPECT_EQ(ddal_common_atomic_close(slow, 1), 0);
    EXPECT_EQ(file_content(kFile), "NEW");
}

// Any user who can read the file can hold its lock.
TEST_F(AtomicFileOnBoard, WaitsForALockForAtMostTwentySeconds)
{
    const int fd = open(kFile, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_SH), 0);
    EXPECT_TRUE(AtomicFile(kFile, "r"));
    timespec start{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    EXPECT_EQ(ddal_common_atomic_open(kFile, "w"), nullptr);
    EXPECT_EQ(errno, EBUSY);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_GE(end.tv_sec - start.tv_sec, 19);
    EXPECT_LE(end.tv_sec - start.tv_sec, 60);
    close(fd);
    EXPECT_EQ(replace("w"), 0);
}

TEST(Sweep, CopyOfAFile)
{
    const auto line = [](const char *what) {
        return fails_with_errno(std::string("3 ddal_common_copy_file: error ") + what + ": %m");
    };
    const Expectation positive = [](const Injected &injected, const Outcome &) { return Outcome{injected.error, {}}; };
    put_file("/flash/from", "text");
    put_file("/flash/to", "old");
    Sweep("ddal_common_copy_file", [] { return ddal_common_copy_file("/flash/from", "/flash/to"); })
        .succeeds(0)
        .when("stat", fails_with_errno_or(-EIO, {}))
        .when("fopen:/flash/from", line("open /flash/from"))
        .when("poll", changes_nothing())
        .when("open", line("create /flash/to"))
        .when("flock/ENOLCK", line("create /flash/to"))
        .when("fdopen", line("create /flash/to"))
        .when("link", line("create /flash/to"))
        .when("rename", line("create /flash/to"))
        .when("fchown", fails(1, {}))
        .when("fchmod", fails(1, {}))
        .when("fread/EIO", positive)
        .when("fread/short", changes_nothing())
        .when("fread/end", changes_nothing())
        .when("fwrite", positive)
        .when("fflush", fails(-EIO, {}))
        .when("fsync:/flash", changes_nothing())
        .when("fsync", fails(-EIO, {}))
        .when("fclose", changes_nothing())
        .watch({"/flash"})
        .run();
}

TEST(Sweep, DirectoryChain)
{
    const Expectation silent = fails_with_errno_or(-EIO, {});
    Sweep("ddal_common_mkdir_p", [] { return ddal_common_mkdir_p("/flash/a/../b/./c", 0700); })
        .before([] {
            std::filesystem::remove_all("/flash/a");
            std::filesystem::remove_all("/flash/b");
        })
        .after([](const Outcome &seen) { EXPECT_TRUE(seen.result < 0 || std::filesystem::is_directory("/flash/b/c")); })
        .when("stat", silent)
        .when("open", silent)
        .when("mkdir", silent)
        .when("fsync", changes_nothing())
        .run();
}

} // namespace
