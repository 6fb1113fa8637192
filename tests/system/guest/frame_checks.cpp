// Frame time against the kernel's clocks, with the real counter and the frame driver's real page.
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <thread>

#include <ddal/clock.h>
#include <ddal/error.h>
#include <ddal/sfn.h>

#include "core/cpu_counter.h"
#include "switches.h"

using namespace std::chrono_literals;

namespace {

constexpr double kUnitsPerSecond = 1'228'800'000;
constexpr double kUnitsPerFrame = 12'288'000;
constexpr uint32_t kSfnMask = 4095;

double seconds(const timespec &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double system_seconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return seconds(now);
}

// The value of `read` and its time, from the quickest of several tries, because an emulator is delayed at times.
struct Sample {
    double value;
    double time;
    double doubt;
};

template <typename Read>
Sample sample(clockid_t clock, Read read)
{
    Sample best{0, 0, INFINITY};
    for (int i = 0; i < 50; i++) {
        const double before = system_seconds(clock);
        const double value = read();
        const double doubt = system_seconds(clock) - before;
        if (doubt < best.doubt)
            best = {value, before + doubt / 2, doubt};
    }
    return best;
}

double frame_seconds()
{
    uint64_t bcn = 0;
    uint32_t offset = 0;
    EXPECT_EQ(ddal_sfn_get_bcn(&bcn, &offset, nullptr), 0);
    return (static_cast<double>(bcn) * kUnitsPerFrame + offset) / kUnitsPerSecond;
}

uint64_t bcn_now()
{
    uint64_t bcn = 0;
    EXPECT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), 0);
    return bcn;
}

TEST(Frame, AdvancesAtTheRateOfTheCounter)
{
    ASSERT_EQ(ddal::core::cpu_counter_frequency(), 204'800'000u);
    const auto counter = [] { return static_cast<double>(ddal::core::cpu_counter()); };
    const Sample frame = sample(CLOCK_MONOTONIC, frame_seconds), count = sample(CLOCK_MONOTONIC, counter);
    std::this_thread::sleep_for(2s);
    const Sample frame_after = sample(CLOCK_MONOTONIC, frame_seconds);
    const Sample count_after = sample(CLOCK_MONOTONIC, counter);

    EXPECT_NEAR((frame_after.value - frame.value) / (frame_after.time - frame.time), 1, 1e-3);
    EXPECT_NEAR((count_after.value - count.value) / (count_after.time - count.time) / 204.8e6, 1, 1e-3);
}

TEST(Frame, ClocksAgreeWithTheKernels)
{
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME}) {
        for (int i = 0; i < 20; i++) {
            const Sample now = sample(clock, [clock] {
                timespec time{};
                EXPECT_EQ(ddal_clock_gettime(clock, &time), 0);
                return seconds(time);
            });
            EXPECT_NEAR(now.value, now.time, now.doubt / 2 + 200e-6) << clock;
            std::this_thread::sleep_for(7ms); // another place in another frame
        }
    }
}

// Frame counts continue beyond the driver's low word, in the page and between two pages.
TEST(Frame, CountsBeyondThirtyTwoBits)
{
    const uint64_t edge = uint64_t{1} << 32;
    const std::string first = rig::get_switch("first_bcn");
    const uint64_t passed = bcn_now() - std::stoull(first);
    rig::set_switch("first_bcn", std::to_string(edge - passed - 100));
    uint64_t bcn = bcn_now();
    EXPECT_LT(bcn, edge);
    for (int i = 0; i < 300 && bcn < edge + 5; i++) {
        uint32_t sfn = 0;
        ASSERT_EQ(ddal_sfn_wait_next(&sfn, nullptr, 0), 0);
        const uint64_t next = bcn_now();
        EXPECT_GT(next, bcn);
        EXPECT_LT(next, edge + 1000);
        EXPECT_LE((next - sfn) & kSfnMask, 50u); // frames may pass between the two calls
        bcn = next;
    }
    EXPECT_GE(bcn, edge);
    rig::set_switch("first_bcn", first);
}

TEST(Frame, WaitsForTheNextAndForAGivenOne)
{
    for (int i = 0; i < 20; i++) {
        uint32_t sfn = 0;
        timespec start{};
        const uint64_t before = bcn_now();
        ASSERT_EQ(ddal_sfn_wait_next(&sfn, &start, 0), 0);
        EXPECT_GT(bcn_now(), before);
        const double since = system_seconds(CLOCK_MONOTONIC) - seconds(start);
        EXPECT_GE(since, 0);
        EXPECT_LT(since, 0.5);
    }

    const uint64_t before = bcn_now();
    uint32_t sfn = static_cast<uint32_t>(before + 10) & kSfnMask;
    ASSERT_EQ(ddal_sfn_wait_for(&sfn, nullptr), 0);
    EXPECT_GE(bcn_now(), before + 10);
    EXPECT_GE((sfn - before) & kSfnMask, 10u);

    timespec real{};
    uint64_t bcn = 0;
    ASSERT_EQ(ddal_sfn_wait_btsrtc_bcn_pair_at_frame(&real, &bcn, 0), 0);
    EXPECT_GT(bcn, before + 10);
    EXPECT_NEAR(seconds(real), system_seconds(CLOCK_REALTIME), 0.5);
}

TEST(Frame, AWaitEndsWithASignal)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval repeated{{0, 100'000}, {0, 100'000}};
    const itimerval off{};
    setitimer(ITIMER_REAL, &repeated, nullptr);
    uint32_t sfn = static_cast<uint32_t>(bcn_now() + 3000) & kSfnMask;
    EXPECT_EQ(ddal_sfn_wait_for(&sfn, nullptr), -EINTR);
    setitimer(ITIMER_REAL, &off, nullptr);
}

TEST(Frame, ReportsFramesWithoutANumber)
{
    const rig::SwitchedOff numbered("numbered");
    uint64_t bcn = 0;
    EXPECT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), DDAL_ERR_NO_FRAME_INFO);
    uint32_t sfn = 1;
    EXPECT_EQ(ddal_sfn_wait_for(&sfn, nullptr), DDAL_ERR_NO_FRAME_INFO);
    timespec time{};
    EXPECT_EQ(ddal_clock_gettime(CLOCK_MONOTONIC, &time), 0); // the clock of the system
    EXPECT_NEAR(seconds(time), system_seconds(CLOCK_MONOTONIC), 0.5);
}

// The driver stands still, and the frame count continues with the processor's counter.
TEST(Frame, ContinuesWithoutTheDriver)
{
    const Sample before = sample(CLOCK_MONOTONIC, frame_seconds);
    {
        const rig::SwitchedOff publishing("publishing");
        std::this_thread::sleep_for(1500ms);
        const Sample after = sample(CLOCK_MONOTONIC, frame_seconds);
        EXPECT_NEAR((after.value - before.value) / (after.time - before.time), 1, 1e-3);
    }

    const Sample again = sample(CLOCK_MONOTONIC, frame_seconds);
    EXPECT_NEAR((again.value - before.value) / (again.time - before.time), 1, 1e-3);
}

} // namespace
