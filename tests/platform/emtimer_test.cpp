#include <cerrno>
#include <fcntl.h>

#include <ddal/emtimer.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/resources.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

const ddal_emtimer_setting kSetting = {{1, 2, 3, 0xFFFFFFFF}};

// The cases build on each other: the device stays open for the life of the process.
TEST(Emtimer, NeedsTheConfigurationFirst)
{
    LogWatch log;
    uint32_t id = 5;
    EXPECT_EQ(ddal_emtimer_create(1, 2, &kSetting, &id), -EBADF);
    EXPECT_EQ(ddal_emtimer_settime(1, &kSetting), -EBADF);
    EXPECT_EQ(ddal_emtimer_destroy(1, nullptr, nullptr), -EBADF);
    {
        const Fault fault("open:/dev/emtimer errno=ENXIO");
        EXPECT_EQ(ddal_emtimer_config(1, 2, 3, 4, 5, 6), -ENXIO);
    }
    EXPECT_EQ(ddal_emtimer_settime(1, &kSetting), -EBADF);
    EXPECT_EQ(id, 5u);
    EXPECT_TRUE(log.take().empty());
}

TEST(Emtimer, PassesItsWordsToTheDriver)
{
    const auto before = open_descriptors();
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(ddal_emtimer_config(11, 12, 13, 14, 15, 0x80000000), 0);
        for (const int fd : open_descriptors()) // the second configuration replaces the first one's device
            EXPECT_TRUE(before.count(fd) || fcntl(fd, F_GETFD) & FD_CLOEXEC) << i;
    }
    uint32_t id = 0, out1 = 0, out2 = 0;
    ASSERT_EQ(ddal_emtimer_create(21, 22, &kSetting, &id), 0);
    const std::string name = std::to_string(id);
    EXPECT_EQ(ctl("emtimer show"),
              "config 11 12 13 14 15 2147483648\n" + name + " a=21 b=22 setting 1 2 3 4294967295\n");
    EXPECT_EQ(ddal_emtimer_settime(id, nullptr), 0);
    EXPECT_NE(ctl("emtimer show").find("setting 0 0 0 0\n"), std::string::npos);
    EXPECT_EQ(ddal_emtimer_settime(id, &kSetting), 0);
    EXPECT_NE(ctl("emtimer show").find("setting 1 2 3 4294967295\n"), std::string::npos);
    EXPECT_EQ(ddal_emtimer_destroy(id, &out1, &out2), 0);
    EXPECT_EQ(out1, 21u); // the model reports the words of the creation
    EXPECT_EQ(out2, 22u);
    EXPECT_EQ(ddal_emtimer_destroy(id, &out1, &out2), -EINVAL);
}

TEST(Emtimer, SurvivesEveryFailureAndKeepsOneDescriptor)
{
    const auto passed_on = fails_with_errno_or(0, {});
    Sweep("ddal_emtimer_config", [] { return ddal_emtimer_config(1, 2, 3, 4, 5, 6); })
        .when("open", passed_on)
        .when("ioctl", passed_on)
        .run();
    uint32_t id = 0;
    Sweep("ddal_emtimer_create and ddal_emtimer_destroy",
          [&id] {
              const int result = ddal_emtimer_create(1, 2, nullptr, &id);
              return result == 0 ? ddal_emtimer_destroy(id, nullptr, nullptr) : result;
          })
        .when("ioctl", passed_on)
        .run();
    ASSERT_EQ(ddal_emtimer_create(1, 2, nullptr, &id), 0);
    Sweep("ddal_emtimer_settime", [id] { return ddal_emtimer_settime(id, nullptr); }).when("ioctl", passed_on).run();
}

} // namespace
