// Frame numbers and waits with the board's frame driver running.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>
#include <unistd.h>

#include <ddal/clock.h>
#include <ddal/sfn.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/program.h"
#include "support/sweep.h"

using namespace testing_board;

namespace {

int64_t ns_of(const timespec &time)
{
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

TEST(Sfn, CountsFramesOf10Milliseconds)
{
    uint64_t first = 0, last = 0;
    timespec first_start{}, last_start{};
    ASSERT_EQ(ddal_sfn_get_bcn(&first, nullptr, &first_start), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_EQ(ddal_sfn_get_bcn(&last, nullptr, &last_start), 0);
    EXPECT_GE(last - first, 29u);
    EXPECT_EQ(ns_of(last_start) - ns_of(first_start), static_cast<int64_t>(last - first) * 10'000'000);

    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME}) {
        timespec before{}, now{}, after{};
        clock_gettime(clock, &before);
        EXPECT_EQ(ddal_clock_gettime(clock, &now), 0);
        clock_gettime(clock, &after);
        EXPECT_GE(ns_of(now), ns_of(before) - 1'000'000);
        EXPECT_LE(ns_of(now), ns_of(after) + 1'000'000);
    }
}

TEST(Sfn, WaitsForTheNextFrameAndForAGivenOne)
{
    uint32_t sfn = 0, next = 0;
    uint64_t bcn = 0, later = 0;
    timespec start{}, real{}, now{};
    ASSERT_EQ(ddal_sfn_get(&sfn, nullptr), 0);
    for (int i = 0; i < 20; ++i, sfn = next) {
        ASSERT_EQ(ddal_sfn_wait_next(&next, &start, 0), 0);
        EXPECT_GE((next - sfn) & 4095, 1u);
    }
    EXPECT_EQ(ddal_sfn_wait_next(nullptr, nullptr, 0), 0);

    ctl("frame bcn 8190"); // waits across the wrap of the number
    std::this_thread::sleep_for(std::chrono::milliseconds(11));
    ASSERT_EQ(ddal_sfn_get(&sfn, nullptr), 0);
    uint32_t wanted = (sfn + 5) & 4095;
    ASSERT_EQ(ddal_sfn_wait_for(&wanted, &start), 0);
    EXPECT_GE((wanted - sfn) & 4095, 5u);
    EXPECT_LT((wanted - sfn) & 4095, 100u);

    ASSERT_EQ(ddal_sfn_get_bcn(&bcn, nullptr, nullptr), 0);
    ASSERT_EQ(ddal_sfn_wait_btsrtc_bcn_pair_at_frame(&real, &later, 0), 0);
    EXPECT_GT(later, bcn);
    clock_gettime(CLOCK_REALTIME, &now);
    EXPECT_LT(ns_of(now) - ns_of(real), 1'000'000'000);
    EXPECT_GE(ns_of(now) - ns_of(real), -1'000'000);
}

TEST(Sfn, RefusesUnsupportedRequests)
{
    LogWatch log;
    timespec time{};
    EXPECT_EQ(ddal_sfn_set(0), -ENOSYS);
    EXPECT_EQ(ddal_sfn_set(4095), -ENOSYS);
    EXPECT_EQ(ddal_sfn_set(4096), -EINVAL);
    EXPECT_EQ(ddal_sfn_get(nullptr, &time), -EINVAL);
    EXPECT_EQ(ddal_sfn_wait_for(nullptr, &time), -EINVAL);
    EXPECT_EQ(ddal_clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time), 0);
    EXPECT_EQ(ddal_clock_gettime(9999, &time), -EINVAL);

    ctl("frame invalid");
    uint32_t sfn = 5;
    EXPECT_EQ(ddal_sfn_wait_for(&sfn, nullptr), -1021);
    EXPECT_EQ(sfn, 5u);
    std::this_thread::sleep_for(std::chrono::milliseconds(11));
    EXPECT_EQ(ddal_sfn_wait_next(&sfn, nullptr, 0), -1021);
    uint64_t bcn = 5;
    EXPECT_EQ(ddal_sfn_wait_btsrtc_bcn_pair_at_frame(nullptr, &bcn, 0), -1021);
    EXPECT_EQ(bcn, 5u);
    ctl("frame valid");
    EXPECT_EQ(log.take(), std::vector<std::string>{"3 ddal_sfn_set: SFN max = 4095"});
}

TEST(Sfn, WaitsSurviveEveryFailure)
{
    Sweep("ddal_sfn_wait_next", [] { return ddal_sfn_wait_next(nullptr, nullptr, 0); })
        .when("ioctl", fails_with_errno("3 ddal_sfn_wait_next: ioctl failed: %m"))
        .run();
    Sweep("ddal_sfn_wait_btsrtc_bcn_pair_at_frame",
          [] { return ddal_sfn_wait_btsrtc_bcn_pair_at_frame(nullptr, nullptr, 0); })
        .when("ioctl", fails_with_errno("3 ddal_sfn_wait_next: ioctl failed: %m"))
        .run();
    Sweep("ddal_sfn_wait_for",
          [] {
              uint32_t sfn = 0;
              const int result = ddal_sfn_get(&sfn, nullptr);
              sfn = (sfn + 2) & 4095;
              return result == 0 ? ddal_sfn_wait_for(&sfn, nullptr) : result;
          })
        .when("ioctl", fails_with_errno("3 ddal_sfn_wait_for: ioctl failed: %m"))
        .run();
}

// Loading the library without a frame driver ends the process. Only a terminal gets a line beside the log's.
TEST(Sfn, ConstructorAborts)
{
    const std::string hint =
        "/dev/fpga_frame: No such device; run the program on a virtual board: vboard run --type mbo -- PROGRAM\r\n";
    const struct {
        const char *failure;
        Finished (*run)(const std::vector<std::string> &words);
        std::string said;
    } rows[] = {
        {"open", run_program, "driver open failed: No such device\n"},
        {"open", run_on_terminal, "driver open failed: No such device\r\n" + hint},
        {"mmap", run_on_terminal, "driver mmap failed: No such device\r\n"},
    };
    for (const auto &row : rows) {
        const Fault fault(std::string(row.failure) + ":/dev/fpga_frame errno=ENODEV");
        const Finished run = row.run({"/proc/self/exe", "--gtest_filter=nothing"});
        EXPECT_EQ(run.status, 128 + SIGABRT) << row.failure;
        EXPECT_EQ(fault.fired(), 1u);
        std::string said = run.err + run.out;
        said.erase(std::min(said.find("qemu: "), said.size())); // the emulator's line about the signal
        const std::string function = "[DDAL_ERROR] ddal_sfn_map_fpga_frame_shm:";
        EXPECT_EQ(said.substr(0, function.size()), function);
        EXPECT_EQ(said.substr(std::min(said.find("- "), said.size())), "- " + row.said);
    }
}

} // namespace
