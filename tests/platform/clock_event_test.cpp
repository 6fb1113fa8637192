#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include <ddal/clock.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/log_watch.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

TEST(ClockEvent, ReportsNumberAndTimeOfThePulse)
{
    ddal_clk_event first, second;
    memset(&first, 0xEE, sizeof first);
    ASSERT_EQ(ddal_clk_event_wait_until(14, nullptr, &first), 0);
    const timespec limit{.tv_sec = 5, .tv_nsec = 0};
    ASSERT_EQ(ddal_clk_event_wait_until(14, &limit, &second), 0);
    EXPECT_EQ(second.sequence, first.sequence + 1);
    EXPECT_EQ(second.sec, first.sec + 1);
    EXPECT_LE(time(nullptr) - second.sec, 1);
    EXPECT_EQ(second.nsec, 0u); // the model's pulses come at full seconds
    EXPECT_EQ(ctl("pps mode"), "1\n");

    ddal_clk_event expected{};
    expected.event = 14;
    expected.sequence = first.sequence;
    expected.sec = first.sec;
    EXPECT_EQ(memcmp(&first, &expected, sizeof first), 0);
    EXPECT_EQ(ddal_clk_event_wait_until(14, nullptr, nullptr), 0);
}

TEST(ClockEvent, WaitsAtLeast10MillisecondsAndAtMostTheLimit)
{
    ctl("pps stop");
    struct Case {
        timespec limit;
        int shortest, longest; // ms
    };
    for (const Case &c : {Case{{0, 0}, 10, 1000},
                          {{0, 5'000'000}, 10, 5000},
                          {{0, 300'000'000}, 300, 5000},
                          {{1, 5'000'000}, 1005, 6000}}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(ddal_clk_event_wait_until(14, &c.limit, nullptr), -ETIMEDOUT);
        const auto passed = std::chrono::steady_clock::now() - start;
        EXPECT_GE(passed, std::chrono::milliseconds(c.shortest));
        EXPECT_LT(passed, std::chrono::milliseconds(c.longest));
    }
    ctl("pps start");
}

TEST(ClockEvent, RefusesOtherEventsAndParameters)
{
    LogWatch log;
    EXPECT_EQ(ddal_clk_event_wait_until(13, nullptr, nullptr), -1001);
    ctl("pps lock");
    EXPECT_EQ(ddal_clk_event_wait_until(14, nullptr, nullptr), -EPERM);
    ctl("pps unlock");
    EXPECT_EQ(log.take(), std::vector<std::string>{"3 ddal_clk_event_wait_until: Unsupported event type: 13"});
}

TEST(ClockEvent, SurvivesEveryFailure)
{
    const auto no_parameters = fails(-EOPNOTSUPP, {}); // EIO and EINTR alike
    const timespec limit{.tv_sec = 5, .tv_nsec = 0};
    Sweep("ddal_clk_event_wait_until", [&limit] { return ddal_clk_event_wait_until(14, &limit, nullptr); })
        .when("open", fails_with_errno("3 ddal_clk_event_wait_until: Unable to open /dev/pps/fpga-pps: %m"))
        .when("ioctl", in_turn({no_parameters, no_parameters, fails_with_errno_or(0, {})}))
        .run();
}

} // namespace
