// Snapshots and extrapolation, with a frame page that the test writes.
#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <ddal/clock.h>
#include <ddal/sfn.h>
#include <gtest/gtest.h>

#include "core/cpu_counter.h"
#include "platform/frame_page.h"

using namespace testing_board;
using namespace ddal::platform;
using ddal::core::cpu_counter;

namespace {

constexpr uint64_t kFrame = 2'048'000; // counts
constexpr uint64_t kSecond = 204'800'000;
constexpr uint32_t kUnits = 12'288'000; // per frame

// Runs each case in a new thread, whose snapshot is empty.
template <typename Code>
void in_new_thread(Code code)
{
    std::thread(code).join();
}

TEST(FramePage, IsExtrapolatedOverAStoppedDriver)
{
    struct Case {
        const char *name;
        uint64_t age; // of the page, in counts
        uint32_t a_nsec;
        uint64_t frames; // passed since the page
        uint32_t sec, nsec;
        uint32_t offset; // at least
    };
    const Case cases[] = {
        {"within the frame", kFrame / 2, 995'000'000, 0, 100, 995'000'000, kUnits / 2},
        {"one frame", kFrame * 3 / 2, 0, 1, 100, 10'000'000, kUnits / 2},
        {"nanoseconds of one second", kFrame * 3 / 2, 990'000'000, 1, 101, 0, kUnits / 2},
        {"nanoseconds just below", kFrame * 3 / 2, 989'999'999, 1, 100, 999'999'999, kUnits / 2},
        {"whole seconds", 2 * kSecond + kFrame / 2, 7, 200, 102, 7, kUnits / 2},
        {"seconds and a carry", kSecond + 99 * kFrame + kFrame / 4, 10'000'000, 199, 102, 0, kUnits / 4},
        // 358.25 frames are 4,402,176,000 units, which leave 107,208,704 in 32 bits.
        {"32 bits of units wrap", 358 * kFrame + kFrame / 4, 0, 8, 100, 80'000'000, 8'904'704},
        {"32 bits of counts wrap", (uint64_t{1} << 32) + kFrame * 3 / 2, 0, 1, 100, 10'000'000, kUnits / 2},
        {"long ago", (uint64_t{5} << 32) + kFrame / 2, 0, 0, 100, 0, kUnits / 2},
    };
    OwnFramePage page;
    for (const Case &c : cases)
        in_new_thread([&] {
            SCOPED_TRACE(c.name);
            const uint64_t bcn = 0x1'0000'0000 - 100; // carries into the upper word
            page.publish({bcn, cpu_counter() - c.age, 100, c.a_nsec, 200, c.a_nsec});
            uint64_t seen = 0;
            uint32_t offset = 0;
            timespec start{};
            ASSERT_EQ(ddal_sfn_get_bcn(&seen, &offset, &start), 0);
            EXPECT_EQ(seen, bcn + c.frames);
            EXPECT_EQ(start.tv_sec, c.sec);
            EXPECT_EQ(start.tv_nsec, c.nsec);
            EXPECT_GE(offset, c.offset);
            EXPECT_LT(offset, c.offset + kUnits / 4) << "or this machine was stopped for 2.5 ms";

            uint32_t sfn = 0;
            EXPECT_EQ(ddal_sfn_get(&sfn, nullptr), 0);
            EXPECT_EQ(sfn, (bcn + c.frames) & 4095);

            // Both clocks are their frame start plus the offset; 1,228.8 units are a microsecond.
            for (const auto &[clock, sec] : {std::pair{CLOCK_MONOTONIC, c.sec}, {CLOCK_REALTIME, c.sec + 100}}) {
                timespec now{};
                EXPECT_EQ(ddal_clock_gettime(clock, &now), 0);
                const int64_t since = (now.tv_sec - int64_t{sec}) * 1'000'000'000 + now.tv_nsec - c.nsec;
                EXPECT_GE(since, int64_t{offset} * 10'000 / 12'288 - 1);
                EXPECT_LT(since, 10'000'000);
                EXPECT_LE(now.tv_nsec, 1'000'000'000);
            }
        });
}

// kept: a clock with exactly one second of nanoseconds is not carried. The page's counter is low by 2^32, so that each
// call reads the page anew. A second begins 1,000 ns after the page, so that a call meets its start within few tries.
TEST(FramePage, KeepsTheNanosecondsOfExactlyOneSecond)
{
    OwnFramePage page;
    timespec now{};
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    do {
        page.publish({1, cpu_counter() - (uint64_t{1} << 32), 100, 999'999'000, 0, 0});
        do
            ASSERT_EQ(ddal_clock_gettime(CLOCK_MONOTONIC, &now), 0);
        while (now.tv_sec == 100 && now.tv_nsec < 1'000'000'000);
        ASSERT_NE(now.tv_nsec, 0) << "of second " << now.tv_sec;
    } while (now.tv_sec != 100 && std::chrono::steady_clock::now() < patience);
    EXPECT_EQ(now.tv_sec, 100);
    EXPECT_EQ(now.tv_nsec, 1'000'000'000);
}

TEST(FramePage, IsNotReadWithinTheFrameOfTheSnapshot)
{
    OwnFramePage page;
    in_new_thread([&] {
        uint64_t bcn = 0;
        page.publish({1000, cpu_counter(), 1, 0, 2, 0});
        ASSERT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), 0);
        page.publish({2000, cpu_counter(), 1, 0, 2, 0});
        ASSERT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), 0);
        EXPECT_EQ(bcn, 1000u);
        std::this_thread::sleep_for(std::chrono::milliseconds(11));
        ASSERT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), 0);
        EXPECT_GE(bcn, 2001u);
    });
}

TEST(FramePage, WithoutAFrameCountIsReadAgainByTheNextCall)
{
    OwnFramePage page;
    in_new_thread([&] {
        uint64_t bcn = 5;
        uint32_t offset = 5;
        timespec start{5, 5}, now{};
        page.publish({UINT64_MAX, cpu_counter(), 1, 0, 2, 0});
        EXPECT_EQ(ddal_sfn_get_bcn(&bcn, &offset, &start), -1021);
        EXPECT_EQ(ddal_sfn_get(&offset, &start), -1021);
        EXPECT_EQ(bcn, 5u);
        EXPECT_EQ(offset, 5u);
        EXPECT_EQ(start.tv_sec, 5);

        timespec system{};
        clock_gettime(CLOCK_REALTIME, &system);
        EXPECT_EQ(ddal_clock_gettime(CLOCK_REALTIME, &now), 0); // the clock of the system
        EXPECT_LE(now.tv_sec - system.tv_sec, 1);

        page.publish({0xFFFFFFFF, cpu_counter(), 1, 0, 2, 0}); // all ones in the lower 32 bits only
        EXPECT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), 0);
        EXPECT_EQ(bcn, 0xFFFFFFFFu);
    });
}

} // namespace
