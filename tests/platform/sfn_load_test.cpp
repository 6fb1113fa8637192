// A reader of the frame page against a writer in another process that updates it as fast as it can.
#include <chrono>
#include <csignal>
#include <iostream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ddal/clock.h>
#include <ddal/sfn.h>
#include <gtest/gtest.h>

#include "core/cpu_counter.h"
#include "platform/frame_page.h"

using namespace testing_board;

namespace {

constexpr std::chrono::seconds kDuration{10};
constexpr std::chrono::seconds kPatience{60}; // on a busy machine
constexpr uint64_t kEnoughReads = 100'000;
constexpr uint64_t kEnoughPages = 10'000; // different ones, so that the writer worked all the time
constexpr uint32_t kTick = 10'000'000;    // ns per frame

// One number determines the whole content of a page. Extrapolated frames (the scheduler has stopped the writer) show in
// the low bits of the frame count.
constexpr unsigned kFrameBits = 12;

constexpr uint32_t scatter(uint32_t n)
{
    n *= 2654435761u;
    return n ^ n >> 15;
}

// The counter is 21 s old, so that every call reads the page again. It is low by a multiple of 2^32, so that the offset
// stays small.
FrameContent content_of(uint32_t n)
{
    return {
        uint64_t{n} << kFrameBits,       ddal::core::cpu_counter() - (uint64_t{1} << 32), n, scatter(n) % kTick, 7 * n,
        scatter(7 * n) % 2 * 500'000'000};
}

[[noreturn]] void write_for_ever(OwnFramePage &page)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (uint32_t n = 1;; n = n % 400'000'000 + 1)
        page.publish(content_of(n));
}

bool is_whole(uint64_t bcn, const timespec &start)
{
    const auto n = static_cast<uint32_t>(bcn >> kFrameBits);
    const uint64_t passed = bcn % (1u << kFrameBits) * kTick;
    return static_cast<uint64_t>(start.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(start.tv_nsec) - passed ==
           uint64_t{n} * 1'000'000'000 + scatter(n) % kTick;
}

// The real-time start of a page lies at the start or in the middle of a second, depending on the second. Up to 49
// frames may have been extrapolated.
bool is_whole(const timespec &real_time)
{
    const bool second_half = scatter(static_cast<uint32_t>(real_time.tv_sec)) % 2 != 0;
    return (real_time.tv_nsec >= 500'000'000) == second_half;
}

TEST(FramePageLoad, ReturnsOnlyWholeSnapshots)
{
    OwnFramePage page;
    page.publish(content_of(1));
    const pid_t writer = fork();
    if (writer == 0)
        write_for_ever(page);

    uint64_t reads = 0, changes = 0, last = 0, torn = 0;
    const auto start_time = std::chrono::steady_clock::now();
    const auto lasted = [&] { return std::chrono::steady_clock::now() - start_time; };
    const auto enough = [&] { return reads >= kEnoughReads && changes >= kEnoughPages; };
    while (lasted() < kDuration || (!enough() && lasted() < kPatience)) {
        for (int i = 0; i < 1000; ++i, reads += 2) {
            uint64_t bcn = 0;
            timespec start{}, real_time{};
            torn += ddal_sfn_get_bcn(&bcn, nullptr, &start) != 0 || !is_whole(bcn, start);
            torn += ddal_clock_gettime(CLOCK_REALTIME, &real_time) != 0 || !is_whole(real_time);
            changes += bcn != last;
            last = bcn;
        }
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);

    std::cout << reads << " reads, " << changes << " pages seen, " << torn << " torn" << std::endl;
    EXPECT_EQ(torn, 0u);
    EXPECT_GE(reads, kEnoughReads);
    EXPECT_GE(changes, kEnoughPages);
}

} // namespace
