// The channels of licensed-assisted access. A table holds the cases that all channels share.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include <ddal/rf_fpga.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"
#include "support/waiting.h"

using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;

// One open channel in the same form for every kind.
struct Channel {
    int *fd; // the library's copy of the descriptor
    std::function<long()> wait;
    std::function<std::string()> seen; // result of the last wait
    std::function<int()> close;
};

struct Kind {
    const char *name;
    std::string node;
    std::function<Channel()> open;
    std::string deliver; // control command
    std::string event;   // result of the wait
    long at_end;         // result of a wait after the device has disappeared
    std::string line_at_end;
    std::string line_when_closed;
};

std::string text(uint32_t value)
{
    return std::to_string(value);
}

Channel open_records()
{
    static int fd;
    static ddal_rf_fpga_laa_record record;
    EXPECT_EQ(ddal_rf_fpga_laa_open(&fd), 0);
    return {&fd, [] { return ddal_rf_fpga_laa_wait(fd, &record); },
            [] { return text(record.word[0]) + " " + text(record.word[12]); },
            [] { return ddal_rf_fpga_laa_close(fd); }};
}

Channel open_prescan()
{
    static ddal_rf_fpga_laa_prescan *desc;
    static uint8_t frame;
    EXPECT_EQ(ddal_rf_fpga_laa_prescan_open(1, &desc), 0);
    return {&desc->fd, [] { return ddal_rf_fpga_laa_prescan_wait(desc, &frame); },
            [] { return text(frame) + " of " + text(desc->index); },
            [] { return ddal_rf_fpga_laa_prescan_close(&desc); }};
}

Channel open_dfs()
{
    static ddal_rf_fpga_laa_dfs *desc;
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_open(1, &desc), 0);
    EXPECT_EQ(desc->event, 1u); // the index, before the first event
    return {&desc->fd, [] { return ddal_rf_fpga_laa_dfs_wait(desc); }, [] { return text(desc->event); },
            [] { return ddal_rf_fpga_laa_dfs_close(&desc); }};
}

template <int (*open)(ddal_rf_fpga_laa_sas **)>
Channel open_sas()
{
    static ddal_rf_fpga_laa_sas *desc;
    EXPECT_EQ(open(&desc), 0);
    return {&desc->fd, [] { return ddal_rf_fpga_laa_sas_wait(desc); }, [] { return std::string(); },
            [] { return ddal_rf_fpga_laa_sas_close(&desc); }};
}

int open_sas_1(ddal_rf_fpga_laa_sas **desc)
{
    return ddal_rf_fpga_laa_sas_open(1, desc);
}

const std::string kSasLine = "3 ddal_rf_fpga_laa_sas_wait: poll failed";

const Kind kKinds[] = {
    {"records", "/dev/fpga_laa", open_records, "laa record 71 2 3 4 5 6 7 8 9 10 11 12 913", "71 913", -EIO,
     "3 ddal_rf_fpga_laa_wait: read from /dev/fpga_laa failed: Success",
     "3 ddal_rf_fpga_laa_wait: read from /dev/fpga_laa failed: Bad file descriptor"},
    {"prescan", "/dev/fpga_laa_prescan1", open_prescan, "laa prescan 1 200", "200 of 1", -1001,
     "3 ddal_rf_fpga_laa_prescan_wait: data is not available",
     "3 ddal_rf_fpga_laa_prescan_wait: read from /dev/fpga_laa_prescan1 failed: Bad file descriptor"},
    {"dfs", "/dev/fpga_laa_dfs1", open_dfs, "laa dfs 1 305419896", "305419896", -1001,
     "3 ddal_rf_fpga_laa_dfs_wait: data is not available",
     "3 ddal_rf_fpga_laa_dfs_wait: read from /dev/fpga_laa_dfs1 failed: Bad file descriptor"},
    {"sas", "/dev/fpga_laa_sas1", open_sas<open_sas_1>, "laa sas 1", "", -EIO, kSasLine, kSasLine},
    {"sas any", "/dev/fpga_laa_sas_any", open_sas<ddal_rf_fpga_laa_sas_open_any_rtwp>, "laa sas any", "", -EIO,
     kSasLine, kSasLine},
};

TEST(LaaChannel, DeliversAnEventFromBeforeTheWait)
{
    for (const Kind &kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const Channel channel = kind.open();
        EXPECT_TRUE(fcntl(*channel.fd, F_GETFD) & FD_CLOEXEC);
        ctl(kind.deliver);
        EXPECT_EQ(channel.wait(), 0);
        EXPECT_EQ(channel.seen(), kind.event);
        EXPECT_EQ(channel.close(), 0);
    }
}

TEST(LaaChannel, ContinuesToWaitAfterASignal)
{
    for (const Kind &kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const Channel channel = kind.open();
        Interrupted waiting(channel.wait);
        EXPECT_TRUE(waiting.blocks());
        waiting.interrupt();
        EXPECT_TRUE(waiting.blocks());
        ctl(kind.deliver);
        EXPECT_EQ(waiting.result(), 0);
        EXPECT_EQ(channel.seen(), kind.event);
        EXPECT_EQ(channel.close(), 0);
    }
}

TEST(LaaChannel, EndsTheWaitWhenTheDeviceDisappears)
{
    for (const Kind &kind : kKinds) {
        SCOPED_TRACE(kind.name);
        LogWatch log;
        const Channel channel = kind.open();
        Interrupted waiting(channel.wait);
        EXPECT_TRUE(waiting.blocks());
        ctl("laa hang-up " + kind.node);
        EXPECT_EQ(waiting.result(), kind.at_end);
        EXPECT_EQ(log.take(), Lines{kind.line_at_end});
        EXPECT_EQ(channel.close(), 0);
    }
}

TEST(LaaChannel, FailsOnAClosedDescriptor)
{
    for (const Kind &kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const Resources resources;
        const Channel channel = kind.open();
        close(*channel.fd);
        LogWatch log;
        EXPECT_EQ(channel.wait(), -EBADF);
        EXPECT_EQ(log.take(), Lines{kind.line_when_closed});
        EXPECT_EQ(channel.close(), -EBADF); // the memory is freed anyway
        EXPECT_EQ(log.take().size(), 1u);
        EXPECT_EQ(resources.difference(), "");
    }
}

TEST(LaaChannel, RefusesAShortRecord)
{
    const struct {
        const Kind &kind;
        int bytes;
    } cases[] = {{kKinds[0], 51}, {kKinds[2], 3}};
    for (const auto &[kind, bytes] : cases) {
        SCOPED_TRACE(kind.name);
        const Channel channel = kind.open();
        ctl(kind.deliver);
        ASSERT_EQ(channel.wait(), 0);
        ctl("laa short " + kind.node + " " + std::to_string(bytes));
        ctl("laa hang-up " + kind.node);
        LogWatch log;
        EXPECT_EQ(channel.wait(), kind.at_end);
        EXPECT_EQ(channel.seen(), kind.event); // unchanged since the last good wait
        EXPECT_EQ(log.take(), Lines{kind.line_at_end});
        EXPECT_EQ(channel.close(), 0);
    }
}

TEST(LaaChannel, KeepsChannelsApart)
{
    ddal_rf_fpga_laa_dfs *first = nullptr, *second = nullptr;
    ASSERT_EQ(ddal_rf_fpga_laa_dfs_open(0, &first), 0);
    ASSERT_EQ(ddal_rf_fpga_laa_dfs_open(1, &second), 0);
    ctl("laa dfs 0 10");
    ctl("laa dfs 1 11");
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_wait(second), 0);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_wait(first), 0);
    EXPECT_EQ(first->event, 10u);
    EXPECT_EQ(second->event, 11u);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_close(&first), 0);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_close(&second), 0);
    EXPECT_EQ(first, nullptr);
}

TEST(LaaChannel, RefusesNullPointers)
{
    ddal_rf_fpga_laa_prescan *prescan = nullptr;
    ddal_rf_fpga_laa_dfs *dfs = nullptr;
    ddal_rf_fpga_laa_sas *sas = nullptr;
    uint8_t frame = 0;
    ASSERT_EQ(ddal_rf_fpga_laa_prescan_open(0, &prescan), 0);
    LogWatch log;
    EXPECT_EQ(ddal_rf_fpga_laa_prescan_wait(prescan, nullptr), -EINVAL);
    ASSERT_EQ(ddal_rf_fpga_laa_prescan_close(&prescan), 0);
    EXPECT_EQ(ddal_rf_fpga_laa_open(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_wait(0, nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_prescan_open(0, nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_prescan_wait(nullptr, &frame), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_prescan_close(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_prescan_close(&prescan), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_open(0, nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_wait(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_close(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_dfs_close(&dfs), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_sas_open_any_rtwp(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_sas_wait(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_sas_close(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_laa_sas_close(&sas), -EINVAL);
    const std::string pre = "ddal_rf_fpga_laa_prescan_", dfs_ = "ddal_rf_fpga_laa_dfs_",
                      sas_ = "3 ddal_rf_fpga_laa_sas_";
    EXPECT_EQ(log.take(),
              (Lines{"3 " + pre + "wait: NULL pointer(frame_index) passed to " + pre + "wait",
                     "3 " + pre + "open: NULL pointer(desc) passed to " + pre + "open",
                     "3 " + pre + "wait: NULL pointer(desc) passed to " + pre + "wait",
                     "3 " + pre + "close: NULL pointer passed to " + pre + "close",
                     "3 " + pre + "close: " + pre + "close: (*desc) points to NULL",
                     "3 " + dfs_ + "open: NULL pointer(desc) passed to " + dfs_ + "open",
                     "3 " + dfs_ + "wait: NULL pointer(desc) passed to " + dfs_ + "wait",
                     "3 " + dfs_ + "close: NULL pointer passed to " + dfs_ + "close",
                     "3 " + dfs_ + "close: " + dfs_ + "close: (*desc) points to NULL",
                     sas_ + "open_by_filename: NULL pointer(desc) passed", sas_ + "wait: NULL pointer(desc) passed",
                     sas_ + "close: NULL pointer passed", sas_ + "close: (*desc) points to NULL"}));
}

TEST(LaaChannel, KeepsTheCallersPointerWhenTheDeviceIsMissing)
{
    auto *const untouched = reinterpret_cast<ddal_rf_fpga_laa_sas *>(&errno);
    ddal_rf_fpga_laa_sas *sas = untouched;
    LogWatch log;
    EXPECT_EQ(ddal_rf_fpga_laa_sas_open(4294967295, &sas), -ENOENT); // the longest name
    EXPECT_EQ(sas, untouched);
    EXPECT_EQ(log.take(), Lines{"3 ddal_rf_fpga_laa_sas_open_by_filename: can't open device "
                                "/dev/fpga_laa_sas4294967295: No such file or directory"});
}

// Opens and closes; a failing close still clears the caller's pointer.
template <typename Descriptor>
int open_and_close(int (*open)(uint32_t, Descriptor **), int (*close)(Descriptor **))
{
    Descriptor *desc = nullptr;
    int result = open(1, &desc);
    if (result == 0) {
        result = close(&desc);
        EXPECT_EQ(desc, nullptr);
    }
    return result;
}

TEST(LaaChannel, SurvivesEveryFailure)
{
    const std::string name = "3 ddal_rf_fpga_laa_", node = "/dev/fpga_laa", why = ": %m";
    const struct {
        std::function<long()> call;
        std::string opening, closing;
    } cases[] = {
        {[] {
             int fd = 5;
             const int result = ddal_rf_fpga_laa_open(&fd);
             EXPECT_EQ(fd == -1, result != 0);
             return result == 0 ? ddal_rf_fpga_laa_close(fd) : result;
         },
         "open: can't open device fpga_laa", "close: close " + node + " failed"},
        {[] { return open_and_close(ddal_rf_fpga_laa_prescan_open, ddal_rf_fpga_laa_prescan_close); },
         "prescan_open: can't open device " + node + "_prescan1", "prescan_close: close " + node + "_prescan1 failed"},
        {[] { return open_and_close(ddal_rf_fpga_laa_dfs_open, ddal_rf_fpga_laa_dfs_close); },
         "dfs_open: can't open device " + node + "_dfs1", "dfs_close: close " + node + "_dfs1 failed"},
        {[] { return open_and_close(ddal_rf_fpga_laa_sas_open, ddal_rf_fpga_laa_sas_close); },
         "sas_open_by_filename: can't open device " + node + "_sas1",
         "sas_close: Failed to close fpga_laa_sas dev node"},
    };
    for (const auto &[call, opening, closing] : cases)
        Sweep(opening, call)
            .when("open", fails_with_errno(name + opening + why))
            .when("close", fails_with_errno(name + closing + why))
            .run();

    const std::string reading[] = {"3 ddal_rf_fpga_laa_wait: read from /dev/fpga_laa failed: %m",
                                   "3 ddal_rf_fpga_laa_prescan_wait: read from /dev/fpga_laa_prescan1 failed: %m",
                                   "3 ddal_rf_fpga_laa_dfs_wait: read from /dev/fpga_laa_dfs*",
                                   "3 ddal_rf_fpga_laa_sas_wait: poll failed"};
    for (int i = 0; i < 4; ++i) {
        const Channel channel = kKinds[i].open();
        Sweep(std::string("wait, ") + kKinds[i].name, channel.wait)
            .before([&] { ctl(kKinds[i].deliver); })
            .when("read/EIO", fails_with_errno(reading[i]))
            .when("read/end", fails(kKinds[i].at_end, {kKinds[i].line_at_end}))
            .when("poll/ENOMEM", fails_with_errno(reading[i]))
            .run();
        EXPECT_EQ(channel.close(), 0);
    }
}

} // namespace
