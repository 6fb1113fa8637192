// The pulse per second, through the PPS interface of the kernel.
#include <cerrno>
#include <ctime>
#include <gtest/gtest.h>

#include <ddal/clock.h>
#include <ddal/error.h>

#include "switches.h"

namespace {

double seconds(const ddal_clk_event &event)
{
    return event.sec + event.nsec / 1e9;
}

TEST(Pulse, ComesOnceASecondWithItsNumberAndTime)
{
    const timespec limit{10, 0};
    ddal_clk_event first{}, second{};
    ASSERT_EQ(ddal_clk_event_wait_until(DDAL_CLK_EVENT_PPS, &limit, &first), 0);
    ASSERT_EQ(ddal_clk_event_wait_until(DDAL_CLK_EVENT_PPS, nullptr, &second), 0);
    EXPECT_EQ(first.event, uint32_t{DDAL_CLK_EVENT_PPS});
    EXPECT_GT(first.sequence, 0u);
    const uint32_t pulses = second.sequence - first.sequence;
    EXPECT_GE(pulses, 1u);
    EXPECT_NEAR(seconds(second) - seconds(first), pulses, 0.3);

    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    EXPECT_NEAR(seconds(second), static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9, 0.5);
}

TEST(Pulse, IsAwaitedForAtMostTheLimit)
{
    const rig::SwitchedOff pulses("pulses");
    struct {
        timespec limit;
        double at_least;
    } const rows[] = {{{0, 300'000'000}, 0.3}, {{1, 5'000'000}, 1.005}, {{0, 0}, 0.01}};
    for (const auto &row : rows) {
        ddal_clk_event event{};
        timespec before{}, after{};
        clock_gettime(CLOCK_MONOTONIC, &before);
        EXPECT_EQ(ddal_clk_event_wait_until(DDAL_CLK_EVENT_PPS, &row.limit, &event), -ETIMEDOUT);
        clock_gettime(CLOCK_MONOTONIC, &after);
        const double waited = static_cast<double>(after.tv_sec - before.tv_sec) +
                              static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
        EXPECT_GE(waited, row.at_least - 0.005); // the kernel waits in ticks of 4 ms
        EXPECT_EQ(event.event, 0u);
    }
}

} // namespace
