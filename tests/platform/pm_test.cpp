#include <cerrno>

#include <ddal/pm.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

const std::string kName = "3 ddal_pm_get_runtimeclock: ";

TEST(RuntimeClock, IsSplitIntoDaysAndMilliseconds)
{
    uint32_t millisec = 0, days = 0;
    ctl("uptime set 259200000"); // three days
    ASSERT_EQ(ddal_pm_get_runtimeclock(&millisec, &days), 0);
    EXPECT_EQ(days, 3u);
    EXPECT_LT(millisec, 60'000u);

    ctl("uptime set 999999999999999");
    ASSERT_EQ(ddal_pm_get_runtimeclock(&millisec, &days), 0);
    EXPECT_EQ(days, 11574074u);
    EXPECT_GE(millisec, 6'399'999u);

    LogWatch log;
    EXPECT_EQ(ddal_pm_get_runtimeclock(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(ddal_pm_get_runtimeclock(&millisec, nullptr), -EINVAL);
    ctl("uptime short");
    EXPECT_EQ(ddal_pm_get_runtimeclock(&millisec, &days), -EIO);
    ctl("uptime normal");
    EXPECT_EQ(days, 11574074u);
    EXPECT_EQ(log.take(), (std::vector<std::string>{kName + "millisec pointer is NULL", kName + "days pointer is NULL",
                                                    kName + "recv: Success"}));
}

TEST(RuntimeClock, SurvivesEveryFailure)
{
    Sweep("ddal_pm_get_runtimeclock",
          [] {
              uint32_t millisec, days;
              return ddal_pm_get_runtimeclock(&millisec, &days);
          })
        .when("socket", fails_with_errno(kName + "socket: %m"))
        .when("setsockopt", fails_with_errno(kName + "socket: %m"))
        .when("connect", fails_with_errno(kName + "socket: %m"))
        .when("recv/short", fails(-EIO, {kName + "recv: Success"}))
        .when("recv/EINTR", changes_nothing())
        .when("recv", fails_with_errno(kName + "recv: %m"))
        .run();
}

} // namespace
