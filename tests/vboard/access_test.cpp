// Calls on nodes that do not come through the usual functions of libc: each is served, or fails with an errno. None
// reads 0 bytes or loses a write.
#include <aio.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/unique_fd.h"
#include "page/page.h"
#include "support/board.h"

using ddal::core::UniqueFd;
using namespace testing_board;

namespace {

constexpr const char *kModel = "/dev/dfe";
constexpr const char *kAttribute = "/sys/class/cpld-usr/cpld-usr/bh_phy_reset";
constexpr const char *kChannel = "/dev/fpga_laa";
constexpr const char *kNotify = "/sys/class/fpga_usr/fpga_usr/rp3_alarm";
constexpr const char *kSignal = "/dev/fpga_laa_sas0";
constexpr off_t kOffset = 16;

char g_a[2];
char g_b[2];
const iovec kParts[] = {{g_a, sizeof g_a}, {g_b, sizeof g_b}};

int scratch()
{
    static const UniqueFd file{open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)};
    return file.get();
}

aiocb request_on(int fd)
{
    aiocb request{};
    request.aio_fildes = fd;
    request.aio_buf = g_a;
    request.aio_nbytes = sizeof g_a;
    return request;
}

long raw_map(int fd)
{
#ifdef SYS_mmap2
    return syscall(SYS_mmap2, nullptr, 4096L, PROT_READ, MAP_SHARED, fd, 0L);
#else
    return syscall(SYS_mmap, nullptr, 4096L, PROT_READ, MAP_SHARED, fd, 0L);
#endif
}

struct Row {
    const char *call;
    const char *node;
    std::function<long(int fd)> act;
    long result; // or -errno
};

const Row kServed[] = {
    {"pwritev", kModel, [](int fd) { return pwritev(fd, kParts, 2, kOffset); }, 4},
    {"preadv", kModel, [](int fd) { return preadv(fd, kParts, 2, kOffset); }, 4},
    {"pwritev2", kModel, [](int fd) { return pwritev2(fd, kParts, 2, kOffset, 0); }, 4},
    {"preadv2", kModel, [](int fd) { return preadv2(fd, kParts, 2, kOffset, 0); }, 4},
    {"preadv2 at the position", kModel, [](int fd) { return preadv2(fd, kParts, 2, -1, 0); }, 4},
    {"preadv2 with a flag", kModel, [](int fd) { return preadv2(fd, kParts, 2, kOffset, RWF_HIPRI); }, -EOPNOTSUPP},
    {"writev", kModel, [](int fd) { return writev(fd, kParts, 2); }, 4},
    {"readv", kModel, [](int fd) { return readv(fd, kParts, 2); }, 4},
    {"readv", kNotify, [](int fd) { return readv(fd, kParts, 2); }, 2}, // "0\n"
    {"lseek", kModel, [](int fd) { return lseek(fd, kOffset, SEEK_SET); }, kOffset},
    {"raw read", kAttribute, [](int fd) { return syscall(SYS_read, fd, g_a, sizeof g_a); }, 2}, // "0\n"
};

// By the preload library, with a line in the daemon's log.
const Row kRefused[] = {
    {"sendfile", kModel, [](int fd) { return sendfile(scratch(), fd, nullptr, 4); }, -EINVAL},
    {"splice", kNotify, [](int fd) { return splice(fd, nullptr, scratch(), nullptr, 4, 0); }, -EINVAL},
    {"copy_file_range", kModel, [](int fd) { return copy_file_range(scratch(), nullptr, fd, nullptr, 4, 0); }, -EINVAL},
    {"aio_write", kAttribute,
     [](int fd) {
         aiocb request = request_on(fd);
         return aio_write(&request);
     },
     -EINVAL},
    {"lio_listio", kModel,
     [](int fd) {
         aiocb request = request_on(fd);
         aiocb *const list[] = {nullptr, &request};
         return lio_listio(LIO_WAIT, list, 2, nullptr);
     },
     -EINVAL},
    {"mmap", kModel, [](int fd) { return mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0) == MAP_FAILED ? -1 : 0; },
     -ENODEV},
    {"read", kSignal, [](int fd) { return read(fd, g_a, sizeof g_a); }, -EINVAL},
};

// By the kernel, which knows what the preload library opened.
const Row kRefusedRaw[] = {
    {"read", kModel, [](int fd) { return syscall(SYS_read, fd, g_a, sizeof g_a); }, -EISDIR},
    {"preadv", kModel, [](int fd) { return syscall(SYS_preadv, fd, kParts, 2, 0L, 0L); }, -EISDIR},
    {"write", kModel, [](int fd) { return syscall(SYS_write, fd, g_a, sizeof g_a); }, -EBADF},
    {"pwritev", kModel, [](int fd) { return syscall(SYS_pwritev, fd, kParts, 2, 0L, 0L); }, -EBADF},
    {"mmap", kModel, raw_map, -ENODEV},
    {"write", kAttribute, [](int fd) { return syscall(SYS_write, fd, g_a, sizeof g_a); }, -EBADF},
    {"write", kChannel, [](int fd) { return syscall(SYS_write, fd, g_a, sizeof g_a); }, -EPIPE},
    {"write", kNotify, [](int fd) { return syscall(SYS_write, fd, g_a, sizeof g_a); }, -EPIPE},
};

long run(const Row &row)
{
    const UniqueFd fd{open(row.node, O_RDWR | O_CLOEXEC)};
    EXPECT_TRUE(fd) << row.node;
    const long result = row.act(fd.get());
    return result < 0 ? -errno : result;
}

template <size_t N>
void expect(const Row (&rows)[N], const std::string &by)
{
    for (const Row &row : rows)
        EXPECT_EQ(run(row), row.result) << by << row.call << " on " << row.node;
}

} // namespace

TEST(Access, IsServedOrRefused)
{
    signal(SIGPIPE, SIG_IGN);
    expect(kServed, "");
    expect(kRefused, "");
    expect(kRefusedRaw, "raw ");

    std::ifstream file(board().directory() / ".vboard/daemon.log");
    const std::string log{std::istreambuf_iterator<char>(file), {}};
    for (const Row &row : kRefused)
        EXPECT_THAT(log, testing::HasSubstr(std::string("refused: ") + row.call + " on " + row.node)) << row.call;
}

TEST(Access, MovesThePartsOfAVectorInOrder)
{
    const UniqueFd fd{open(kModel, O_RDWR | O_CLOEXEC)};
    const iovec out[] = {{const_cast<char *>("12"), 2}, {nullptr, 0}, {const_cast<char *>("34"), 2}};
    ASSERT_EQ(pwritev(fd.get(), out, 3, kOffset), 4);
    char whole[5] = {};
    ASSERT_EQ(pread(fd.get(), whole, 4, kOffset), 4);
    EXPECT_STREQ(whole, "1234");
    ASSERT_EQ(lseek(fd.get(), kOffset, SEEK_SET), kOffset);
    ASSERT_EQ(readv(fd.get(), kParts, 2), 4);
    EXPECT_EQ(std::string(g_a, 2) + std::string(g_b, 2), "1234");
    EXPECT_EQ(lseek(fd.get(), 0, SEEK_CUR), kOffset + 4);
}

TEST(Access, FindsTheBoardsFilesByRawCalls)
{
    const std::string root = board().page().root;
    const bool fenced = board().page().fenced != 0;
    for (const char *node : {kModel, kAttribute, kChannel, kNotify, kSignal})
        for (const std::string &name : fenced ? std::vector{root + node, std::string(node)} : std::vector{root + node})
            for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR | O_CREAT | O_TRUNC}) {
                EXPECT_EQ(syscall(SYS_openat, AT_FDCWD, name.c_str(), flags, 0), -1) << name;
                EXPECT_EQ(errno, ENXIO) << name;
            }
    // Without the fence a raw open of a file's name reaches the machine.
    const std::string version = fenced ? "/etc/version" : root + "/etc/version";
    const UniqueFd file{static_cast<int>(syscall(SYS_openat, AT_FDCWD, version.c_str(), O_RDONLY, 0))};
    char text[4] = {};
    EXPECT_EQ(read(file.get(), text, sizeof text), 4);
    EXPECT_EQ(std::string(text, 4), "R4.2");
}

// What the preload library opens in place of a node looks like the node.
TEST(Access, ShowsTheNodeToTheProgram)
{
    for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR | O_NONBLOCK}) {
        const UniqueFd fd{open(kModel, flags)};
        EXPECT_EQ(fcntl(fd.get(), F_GETFL) & (O_ACCMODE | O_NONBLOCK | O_SYNC | O_DIRECTORY), flags);
        const std::string link = "/proc/self/fd/" + std::to_string(fd.get());
        struct stat by_name;
        struct stat by_descriptor;
        ASSERT_EQ(stat(kModel, &by_name), 0);
        ASSERT_EQ(fstat(fd.get(), &by_descriptor), 0);
        EXPECT_EQ(by_descriptor.st_ino, by_name.st_ino);
        EXPECT_TRUE(S_ISREG(by_name.st_mode));
        char target[64] = {};
        EXPECT_GT(readlink(link.c_str(), target, sizeof target), 0);
        EXPECT_STREQ(target, kModel);
        const UniqueFd again{open(link.c_str(), O_RDONLY)};
        EXPECT_EQ(pread(again.get(), g_a, 2, 0), 2);
        EXPECT_EQ(pwrite(again.get(), g_a, 2, 0), -1);
        EXPECT_EQ(errno, EBADF);
    }
    const UniqueFd writing{open(kModel, O_WRONLY)};
    EXPECT_EQ(read(writing.get(), g_a, 2), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(open(kModel, O_RDONLY | O_DIRECTORY), -1);
    EXPECT_EQ(errno, ENOTDIR);
    ASSERT_EQ(rename(kModel, "/dev/moved"), 0);
    EXPECT_EQ(open(kModel, O_RDONLY), -1) << "the node is gone";
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(rename("/dev/moved", kModel), 0);
}

// The trace and the system log get their last line from the preload library, the daemon's log from the daemon.
TEST(Logs, EndAtTheirLimits)
{
    const UniqueFd node{open(kModel, O_RDWR | O_CLOEXEC)};
    const auto refuse = [&] { EXPECT_LT(sendfile(scratch(), node.get(), nullptr, 4), 0); };
    const struct {
        const char *name;
        uint64_t limit;
        std::string end;
        std::function<void()> write;
    } logs[] = {
        {"trace.jsonl", vboard::kTraceLimit, vboard::kTraceEnd, [&] { EXPECT_EQ(pread(node.get(), g_a, 2, 0), 2); }},
        {"syslog", vboard::kSyslogLimit, vboard::kSyslogEnd, [] { syslog(LOG_INFO, "line"); }},
        {"daemon.log", 1 << 20, "the log has reached 1048576 bytes and ends here\n", refuse},
    };
    for (const auto &log : logs) {
        const auto path = board().directory() / ".vboard" / log.name;
        log.write();
        if (log.limit != 1 << 20) // the daemon counts what it writes
            std::filesystem::resize_file(path, log.limit - 1);
        for (int i = 0; i < 30'000 && std::filesystem::file_size(path) < log.limit; ++i)
            log.write();
        const auto size = std::filesystem::file_size(path);
        ASSERT_GE(size, log.limit) << log.name;
        log.write();
        EXPECT_EQ(std::filesystem::file_size(path), size) << log.name;
        std::ifstream file(path);
        file.seekg(-static_cast<std::streamoff>(log.end.size()), std::ios::end);
        EXPECT_EQ((std::string{std::istreambuf_iterator<char>(file), {}}), log.end) << log.name;
        std::filesystem::resize_file(path, 0);
    }
}
