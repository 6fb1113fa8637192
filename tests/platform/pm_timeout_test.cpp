#include <cerrno>
#include <chrono>

#include <ddal/pm.h>
#include <gtest/gtest.h>

#include "support/board.h"

using namespace testing_board;

// On a board where time passes quickly.
TEST(RuntimeClock, GivesUpOnASilentDaemon)
{
    ctl("uptime silent");
    uint32_t millisec = 0, days = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ddal_pm_get_runtimeclock(&millisec, &days), -EAGAIN);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    ctl("uptime normal");
}
