#include "core/atomic_file.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "file_lock.h"
#include "temporary_directory.h"

using namespace ddal::core;

namespace {

const std::string kLarge(200000, 'o'); // several rounds of the copy inside the kernel

// Opens, writes and closes a file. Returns 0 or the first negative errno.
int replace(const std::string &path, const char *mode, const std::string &text, int commit = 1)
{
    ddal_common_atomic_file *file = ddal_common_atomic_open(path.c_str(), mode);
    if (!file)
        return -errno;
    fwrite(text.data(), 1, text.size(), ddal_common_atomic_writer(file));
    return ddal_common_atomic_close(file, commit);
}

TEST(AtomicFile, EachModeStartsFromItsContent)
{
    const struct {
        const char *mode;
        const char *old; // null: missing
        int result;
        const char *committed;
        const char *dropped;
    } cases[] = {
        {"w", "old text", 0, "NEW", "old text"},
        {"w+", "old text", 0, "NEW", "old text"},
        {"a", "old text", 0, "old textNEW", "old text"},
        {"r+", "old text", 0, "NEW text", "old text"},
        {"w", nullptr, 0, "NEW", ""},
        {"a", nullptr, 0, "NEW", ""},
        {"r+", nullptr, -ENOENT, "", ""},
        {"x", "old text", -EINVAL, "old text", "old text"},
    };
    for (const auto &c : cases) {
        for (const int commit : {0, 1}) {
            SCOPED_TRACE(std::string(c.mode) + (c.old ? " on a file" : " on nothing") + (commit ? "" : ", dropped"));
            const TemporaryDirectory directory;
            const std::string path = directory / "file";
            if (c.old)
                directory.put("file", c.old);
            const auto before = open_descriptors();
            EXPECT_EQ(replace(path, c.mode, "NEW", commit), c.result);
            EXPECT_EQ(open_descriptors(), before);
            EXPECT_EQ(directory.get("file"), commit ? c.committed : c.dropped);
            EXPECT_EQ(directory.names().size(), c.result == -ENOENT ? 0U : 1U) << "a temporary file is left";
        }
    }
}

TEST(AtomicFile, KeepsModeAndOffersTheOldContent)
{
    const TemporaryDirectory directory;
    const std::string path = directory.put("file", kLarge);
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    ddal_common_atomic_file *file = ddal_common_atomic_open(path.c_str(), "a");
    ASSERT_NE(file, nullptr);
    std::string old(kLarge.size() + 1, ' ');
    EXPECT_EQ(fread(old.data(), 1, old.size(), ddal_common_atomic_reader(file)), kLarge.size());
    fputs("end", ddal_common_atomic_writer(file));
    ASSERT_EQ(ddal_common_atomic_close(file, 1), 0);
    EXPECT_TRUE(directory.get("file") == kLarge + "end");
    struct stat replaced;
    ASSERT_EQ(stat(path.c_str(), &replaced), 0);
    EXPECT_EQ(replaced.st_mode & ALLPERMS, 0604U);
}

int open_on_exec()
{
    int count = 0;
    for (int fd = 0; fd < 64; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        count += flags >= 0 && !(flags & FD_CLOEXEC);
    }
    return count;
}

TEST(AtomicFile, SharesTheLockAmongReadersAndLeavesNothingOpenOnExec)
{
    const TemporaryDirectory directory;
    const std::string path = directory.put("file", "text");
    const int before = open_on_exec();
    {
        const AtomicFile first{path.c_str(), "r"};
        const AtomicFile second{path.c_str(), "r"};
        EXPECT_TRUE(first && second);
        EXPECT_FALSE(is_unlocked(path));
        EXPECT_EQ(open_on_exec(), before);
    }
    const AtomicFile writer{path.c_str(), "r+"};
    EXPECT_TRUE(writer);
    EXPECT_EQ(open_on_exec(), before);
}

TEST(AtomicFile, RefusesPathsWithoutAFileName)
{
    const TemporaryDirectory directory;
    const struct {
        std::string path;
        int error;
    } cases[] = {{directory / "", EISDIR},
                 {directory / "no/file", ENOENT},
                 {directory / std::string(256, 'n'), ENAMETOOLONG},
                 {std::string(4096, '/') + "file", ENAMETOOLONG}};
    for (const auto &c : cases) {
        errno = 0;
        EXPECT_EQ(ddal_common_atomic_open(c.path.c_str(), "w"), nullptr);
        EXPECT_EQ(errno, c.error) << c.path;
    }
    EXPECT_EQ(replace(directory / std::string(255, 'n'), "w", "new", true), 0); // the longest name
}

TEST(AtomicFile, WaitsForALockAndThenOpensTheNewFile)
{
    for (const bool removed : {false, true}) {
        const TemporaryDirectory directory;
        const std::string path = directory.put("file", "old");
        ddal_common_atomic_file *first = ddal_common_atomic_open(path.c_str(), "w");
        ASSERT_NE(first, nullptr);
        std::string seen;
        std::thread second([&] {
            const AtomicFile file{path.c_str(), "r"};
            char text[8] = "nothing";
            if (file && fgets(text, sizeof text, file.reader()) == nullptr)
                text[0] = '\0';
            seen = text;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // queue for the lock of the old file
        fputs("new", ddal_common_atomic_writer(first));
        if (removed)
            unlink(path.c_str());
        EXPECT_EQ(ddal_common_atomic_close(first, removed ? 0 : 1), 0);
        second.join();
        EXPECT_EQ(seen, removed ? "nothing" : "new");
    }
}

// Runs `body` in a child and kills it at its n-th stop before or after a system call. Returns false if it ended
// earlier.
bool killed_at(int n, const std::function<void()> &body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        body();
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    for (int stop = 0; stop < n && WIFSTOPPED(status); ++stop) {
        ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
        waitpid(pid, &status, 0);
    }
    if (!WIFSTOPPED(status))
        return false;
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return true;
}

TEST(AtomicFile, AWriterKilledAnywhereLeavesTheOldOrTheNewFile)
{
    for (const char *mode : {"w", "a", "r+"}) {
        const std::string result = mode[0] == 'a' ? kLarge + "NEW" : mode[0] == 'w' ? "NEW" : "NEW" + kLarge.substr(3);
        int stops = 0;
        int old_files = 0;
        for (bool killed = true; killed; ++stops) {
            const TemporaryDirectory directory;
            const std::string path = directory.put("file", kLarge);
            killed = killed_at(stops, [&] { replace(path, mode, "NEW"); });
            const std::string left = directory.get("file");
            ASSERT_TRUE(left == kLarge || left == result) << mode << ", stop " << stops;
            old_files += left == kLarge;
            ASSERT_TRUE(is_unlocked(path)) << mode << ", stop " << stops;
            ASSERT_EQ(replace(path, "w", "next"), 0);
            ASSERT_EQ(directory.names().size(), 1U) << mode << ", stop " << stops << ": a temporary file stays";
        }
        std::printf("mode %s: killed at %d stops, the old file left at %d of them\n", mode, stops - 1, old_files);
        EXPECT_GT(old_files, 20); // open, lock, copy, write: a kill before the last step keeps the old file
        EXPECT_LT(old_files, stops);
    }
}

TEST(AtomicFile, RemovesOnlyTheFilesOfKilledWriters)
{
    const TemporaryDirectory directory;
    const std::string path = directory.put("file", "old");
    const std::string at_work = directory.put(".ddal-At2Wk1", "");
    directory.put(".ddal-Killed", "");
    ASSERT_EQ(link(path.c_str(), (directory / ".ddal-Second").c_str()), 0); // left by a writer killed after its rename
    for (const char *other : {".ddal-seven77", ".ddal-a_b_c_", "ddal-Killed"})
        directory.put(other, "");
    ASSERT_EQ(symlink(path.c_str(), (directory / ".ddal-Linked").c_str()), 0);
    const int fd = open(at_work.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    ASSERT_EQ(replace(path, "w", "new"), 0);
    close(fd);
    EXPECT_EQ(directory.names(), (std::set<std::string>{".ddal-At2Wk1", ".ddal-seven77", ".ddal-a_b_c_", "ddal-Killed",
                                                        ".ddal-Linked", "file"}));
    EXPECT_EQ(directory.get("file"), "new");
}

// Returns a file of one line: a counter, and its digits repeated to a length that varies with it.
std::string counted(unsigned count)
{
    std::string text = std::to_string(count) + ":";
    const std::string unit = std::to_string(count) + ",";
    for (unsigned i = 0; i < count * 37 % 5000; ++i)
        text += unit;
    return text;
}

unsigned count_up(const std::string &path, std::chrono::steady_clock::time_point end)
{
    unsigned done = 0;
    for (; std::chrono::steady_clock::now() < end; ++done) {
        ddal_common_atomic_file *file = ddal_common_atomic_open(path.c_str(), "w");
        unsigned count = 0;
        if (!file || fscanf(ddal_common_atomic_reader(file), "%u", &count) != 1)
            _exit(1);
        fputs(counted(count + 1).c_str(), ddal_common_atomic_writer(file));
        if (ddal_common_atomic_close(file, 1) != 0)
            _exit(2);
    }
    return done;
}

unsigned check_whole(const std::string &path, std::chrono::steady_clock::time_point end)
{
    unsigned done = 0;
    for (std::string text; std::chrono::steady_clock::now() < end; ++done) {
        std::ifstream file(path, std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(file), {});
        if (text != counted(static_cast<unsigned>(strtoul(text.c_str(), nullptr, 10))))
            _exit(3);
    }
    return done;
}

TEST(AtomicFile, ReadersSeeWholeFilesAndWritersLoseNothing)
{
    constexpr int kWriters = 2;
    constexpr int kReaders = 10;
    const TemporaryDirectory directory;
    const std::string path = directory.put("file", counted(0));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    for (int i = 0; i < kWriters + kReaders; ++i) {
        if (fork() == 0) {
            const unsigned result[2] = {i < kWriters ? count_up(path, end) : 0,
                                        i < kWriters ? 0 : check_whole(path, end)};
            _exit(write(ends[1], result, sizeof result) == sizeof result ? 0 : 4);
        }
    }
    close(ends[1]);
    unsigned writes = 0;
    unsigned reads = 0;
    for (unsigned result[2]; read(ends[0], result, sizeof result) == sizeof result;) {
        writes += result[0];
        reads += result[1];
    }
    close(ends[0]);
    for (int status = 0; wait(&status) > 0;)
        EXPECT_EQ(status, 0) << "writer: 1, 2; reader: 3, as exit status";

    std::printf("%u replacements, %u whole reads\n", writes, reads);
    EXPECT_EQ(directory.get("file"), counted(writes));
    EXPECT_GT(writes, 100U);
    EXPECT_GT(reads, writes);
    EXPECT_EQ(directory.names().size(), 1U);
}

} // namespace
