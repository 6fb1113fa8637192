// Every failure of every call that the core's internal parts make: replacement of files, copies, directories.
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <list>
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

TEST_F(AtomicFileOnBoard, AFailureLeavesTheOldFileAndNothingElse)
{
    const Expectation silent = fails_with_errno_or(-EIO, {});
    // The copy inside the kernel: in and out by turns, for two rounds, then in once more to see the end.
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
            .when("fwrite", fails(-EIO, {})) // the test's own call: found when the stream is flushed
            .when("splice/EIO", splice)
            .when("flock/ENOLCK", silent)
            .when("fclose", changes_nothing());
        for (const char *call : {"open", "fstat", "stat", "fdopen", "lseek", "pipe", "fflush", "fdatasync", "fchmod",
                                 "fchown", "link", "rename"})
            sweep.when(call, silent);
        sweep.run();
    }
}

TEST_F(AtomicFileOnBoard, FindsAWayWhereTheFirstIsRefused)
{
    const std::string no_anonymous = "open:/flash/swept nth=2 errno=EOPNOTSUPP"; // the first opens the folder itself
    const struct {
        std::vector<std::string> faults;
        int result;
    } cases[] = {
        {{no_anonymous}, 0},
        {{"open:/flash/swept nth=2 errno=EISDIR"}, 0}, // from a kernel that does not know anonymous files
        {{"open:/flash/swept nth=2 errno=ENOSPC"}, -ENOSPC},
        {{no_anonymous, "open:/flash/swept/.ddal-* errno=EEXIST count=20"}, 0},
        {{no_anonymous, "open:/flash/swept/.ddal-* errno=EROFS"}, -EROFS},
        {{no_anonymous, "rename errno=EIO"}, -EIO},
        {{"link errno=ENOENT"}, 0}, // no privilege to link a descriptor
        {{"link errno=EPERM count=2"}, -EPERM},
        {{"link errno=EEXIST count=20"}, 0}, // somebody took the names
        {{no_anonymous, "link errno=EEXIST"}, 0},
        {{"splice errno=EAGAIN"}, 0},
        {{"splice nth=2 errno=EAGAIN"}, 0},
        {{"splice nth=2 errno=EINTR count=3"}, 0},
        {{"splice nth=2 errno=EAGAIN count=2"}, -EAGAIN}, // refused even when it may wait
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

TEST(Sweep, CopyOfAFile)
{
    const auto line = [](const char *what) {
        return fails_with_errno(std::string("3 ddal_common_copy_file: error ") + what + ": %m");
    };
    const Expectation positive = [](const Injected &injected, const Outcome &) { return Outcome{injected.error, {}}; };
    put_file("/flash/from", "text");
    Sweep("ddal_common_copy_file", [] { return ddal_common_copy_file("/flash/from", "/flash/to"); })
        .succeeds(0)
        .when("stat", fails_with_errno_or(-EIO, {}))
        .when("fopen:/flash/from", line("open /flash/from"))
        .when("fopen:/flash/to", line("create /flash/to"))
        .when("chown", fails(1, {}))
        .when("poll", changes_nothing())
        .when("chmod", fails(1, {}))
        .when("fread/EIO", positive)
        .when("fread/short", changes_nothing())
        .when("fread/end", changes_nothing())
        .when("fwrite", positive)
        .when("fflush", fails(-EIO, {}))
        .when("fclose:/flash/to", fails(-EIO, {}))
        .when("fclose:/flash/from", changes_nothing())
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
        .when("fsync", silent)
        .run();
}

} // namespace
