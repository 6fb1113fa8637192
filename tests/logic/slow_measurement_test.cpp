#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <future>
#include <unistd.h>

#include <ddal/rf_fpga.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/in_child.h"
#include "support/log_watch.h"
#include "support/sweep.h"
#include "support/waiting.h"

using namespace testing_board;

namespace {

using Lines = std::vector<std::string>;
using Report = ddal_rf_fpga_slow_meas;

const std::string kOpen = "3 ddal_rf_fpga_slow_meas_report_open: ";
const std::string kSet = "3 ddal_rf_fpga_slow_meas_report_set_period: ";
const std::string kWait = "3 ddal_rf_fpga_slow_meas_report_wait: ";
const std::string kClose = "3 ddal_rf_fpga_slow_meas_report_close: ";
const std::string kNoVersion = "3 check_if_board_is_with_c5: Getting fpga version error %m";
const std::string kChecking = "Error checking board";
constexpr const char *kPeriodRegister = "fpga get 0x140a00";

class OpenReport {
public:
    OpenReport() { EXPECT_EQ(ddal_rf_fpga_slow_meas_report_open(&desc, 1000), 0); }
    ~OpenReport() { EXPECT_EQ(ddal_rf_fpga_slow_meas_report_close(desc), 0); }
    Report *desc = nullptr;
};

uint32_t word(const uint8_t *bytes)
{
    uint32_t value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

// Makes the board deliver a report during the wait.
int wait_for_report(Report *desc, uint8_t (&bytes)[64], const std::string &command = "slow-measurement report")
{
    auto result = std::async(std::launch::async, [&] { return ddal_rf_fpga_slow_meas_report_wait(desc, bytes); });
    wait_until([] { return ctl("slow-measurement show").find("waiting 1") != std::string::npos; });
    ctl(command);
    return result.get();
}

TEST(SlowMeasurement, DeliversBothBlocksOfTheReportedBuffer)
{
    ctl("slow-measurement stop");
    const OpenReport report;
    for (uint32_t n = 0; n < 4; ++n) {
        const uint32_t index = n % 2;
        for (uint32_t i = 0; i < 64; i += 4) { // the old content is not a report
            ctl("fpga set " + std::to_string((index ? 0xC2060 : 0xC2040) + i % 32) + " 0xdead");
            ctl("fpga set " + std::to_string((index ? 0x181960 : 0x181940) + i % 32) + " 0xdead");
        }
        uint8_t bytes[64] = {};
        EXPECT_EQ(wait_for_report(report.desc, bytes), 32);
        const uint32_t count = word(bytes) >> 8;
        for (uint32_t i = 0; i < 32; i += 4) {
            EXPECT_EQ(word(bytes + i), count << 8 | i) << n;
            EXPECT_EQ(word(bytes + 32 + i), 0x80000000 | count << 8 | i) << n;
        }
    }
    ctl("slow-measurement start");
}

TEST(SlowMeasurement, ArrivesAtItsPeriod)
{
    ctl("slow-measurement start");
    const OpenReport report;
    uint8_t bytes[64];
    ASSERT_EQ(ddal_rf_fpga_slow_meas_report_set_period(report.desc, 100), 0);
    ASSERT_EQ(ddal_rf_fpga_slow_meas_report_wait(report.desc, bytes), 32);
    const uint32_t first = word(bytes) >> 8;
    timespec start, end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (int n = 0; n < 10; ++n)
        ASSERT_EQ(ddal_rf_fpga_slow_meas_report_wait(report.desc, bytes), 32);
    clock_gettime(CLOCK_MONOTONIC, &end);
    const double seconds =
        static_cast<double>(end.tv_sec - start.tv_sec) + static_cast<double>(end.tv_nsec - start.tv_nsec) / 1e9;
    const uint32_t reports = (word(bytes) >> 8) - first; // more than ten if this process was late
    EXPECT_GE(reports, 10u);
    EXPECT_NEAR(seconds, reports * 0.1, 0.15);
}

TEST(SlowMeasurement, AcceptsPeriodsOfWholeTenthsUpToASecond)
{
    const OpenReport report;
    for (const auto &[period, value] : {std::pair{100u, 1}, {300u, 3}, {1000u, 10}}) {
        EXPECT_EQ(ddal_rf_fpga_slow_meas_report_set_period(report.desc, period), 0);
        EXPECT_EQ(std::stoi(ctl(kPeriodRegister), nullptr, 16), value);
    }
    for (const uint32_t period : {0u, 50u, 150u, 1001u, 1100u, 0x80000000u}) {
        LogWatch log;
        EXPECT_EQ(ddal_rf_fpga_slow_meas_report_set_period(report.desc, period), -EINVAL);
        EXPECT_EQ(log.take(),
                  Lines{kSet + "period not valid: " + std::to_string(period) + ", expect 100,200,...,1000."});
    }
    EXPECT_EQ(std::stoi(ctl(kPeriodRegister), nullptr, 16), 10);
}

TEST(SlowMeasurement, ChecksItsHandle)
{
    uint32_t forged[3] = {0xFEEDFACF, 0, 0};
    auto *bad = reinterpret_cast<Report *>(forged);
    uint8_t bytes[64];
    const std::string magic = "Invalid Descriptor. magic: 4277009103, expected 4277009102";
    LogWatch log;
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_set_period(nullptr, 150), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_set_period(bad, 150), -ENODEV);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_wait(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_wait(bad, bytes), -ENODEV);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_close(nullptr), -EINVAL);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_close(bad), -ENODEV);
    EXPECT_EQ(log.take(),
              (Lines{kSet + "Null descriptor.", kSet + magic, kWait + "slow_measurement_report buffer is NULL",
                     kWait + magic, kClose + "Null descriptor.", kClose + magic}));
}

// A C5 has no period and other second blocks, and a process that has seen a C5 keeps its addresses.
TEST(SlowMeasurement, FollowsTheTypeOfTheMainFpga)
{
    ctl("slow-measurement stop");
    ctl("fpga set 0 0xc5000001");
    const auto outcome = in_child([] {
        LogWatch log;
        Lines seen{std::to_string(ddal_rf_fpga_slow_meas_report_set_period(nullptr, 12345))};
        Report *desc = nullptr;
        uint8_t bytes[64] = {};
        seen.push_back(std::to_string(ddal_rf_fpga_slow_meas_report_open(&desc, 12345)));
        for (const std::string &line : log.take())
            seen.push_back(line);
        for (const char *version : {"fpga set 0 0xc5000001", "fpga set 0 0x17010203"}) {
            ctl("fpga set 0x182040 0xc5c5");
            ctl("fpga set 0x181940 0x1111");
            ctl(version);
            seen.push_back(std::to_string(wait_for_report(desc, bytes, "slow-measurement report 0")));
            seen.push_back(std::to_string(word(bytes + 32)));
        }
        return seen;
    });
    const std::string info =
        "6 ddal_rf_fpga_slow_meas_report_set_period: Function executed but set nothing because the "
        "board is with C5 FPGA";
    EXPECT_EQ(outcome, (Lines{"0", "0", info, info, "32", "50629", "32", "50629"})); // 0xc5c5
    EXPECT_EQ(std::stoi(ctl(kPeriodRegister), nullptr, 16), 10);
    ctl("slow-measurement start");
}

TEST(SlowMeasurement, EndsTheWaitWithAReason)
{
    ctl("slow-measurement stop");
    const OpenReport report;
    uint8_t bytes[64];
    LogWatch log;
    EXPECT_EQ(wait_for_report(report.desc, bytes, "slow-measurement report 2"), -1001); // a buffer that does not exist
    EXPECT_EQ(wait_for_report(report.desc, bytes, "slow-measurement hang-up"), -1001);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_wait(report.desc, bytes), -1001);
    ctl("slow-measurement stop"); // the device is back
    {
        Interrupted waiting([&] { return ddal_rf_fpga_slow_meas_report_wait(report.desc, bytes); });
        wait_until([] { return ctl("slow-measurement show").find("waiting 1") != std::string::npos; });
        waiting.interrupt();
        EXPECT_EQ(waiting.result(), -1001);
    }
    // The handle has three words: magic, report descriptor, register descriptor.
    auto *words = reinterpret_cast<int32_t *>(report.desc);
    const int kept = dup(words[1]);
    close(words[1]);
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_wait(report.desc, bytes), -1001);
    words[1] = kept;
    EXPECT_EQ(log.take(),
              (Lines{kWait + "ioctl failed: Numerical result out of range", kWait + "ioctl failed: No such device",
                     kWait + "ioctl failed: No such device", kWait + "ioctl failed: Interrupted system call",
                     kWait + "ioctl failed: Bad file descriptor"}));
    ctl("slow-measurement start");
}

TEST(SlowMeasurement, SurvivesEveryFailure)
{
    const std::string version_open = "3 ddal_fpga_read: can't open device fpga_usr: %m";
    const std::string version_read = "3 ddal_fpga_read: fpga read failed: %m";
    const std::string version_end = "3 ddal_fpga_read: fpga driver returned unexpected len on fpga_usr_read";
    const std::string in_open = kOpen + "unable to write period to fpga: *";
    const auto no_version = [&](std::string first, const std::string &caller, Lines more) {
        Lines lines{std::move(first), kNoVersion, caller + kChecking};
        lines.insert(lines.end(), more.begin(), more.end());
        return fails(-1001, lines);
    };
    Sweep("ddal_rf_fpga_slow_meas_report_open",
          [] {
              Report *desc = nullptr;
              const int result = ddal_rf_fpga_slow_meas_report_open(&desc, 200);
              return result == 0 ? ddal_rf_fpga_slow_meas_report_close(desc) : result;
          })
        .when("open:/dev/fpga_smr", fails_with_errno(kOpen + "can't open device fpga_smr: %m"))
        .when("open", in_turn({fails_with_errno(kOpen + "can't open device fpga_usr: %m"),
                               fails_with_errno(kOpen + "can't open device fpga_usr: %m"),
                               no_version(version_open, kSet, {in_open})}))
        .when("pread/EIO", no_version(version_read, kSet, {in_open}))
        .when("pread/end", no_version(version_end, kSet, {in_open}))
        .when("pwrite/EIO", fails_with_errno_or(0, {kSet + "fpga write failed: %m", in_open}))
        .when("pwrite/end", fails(-1001, {kSet + "fpga driver returned unexpected len on fpga_usr_write", in_open}))
        .run();

    const OpenReport report;
    EXPECT_EQ(ddal_rf_fpga_slow_meas_report_set_period(report.desc, 100), 0);
    const auto first_block = [](const Injected &injected, const Outcome &) {
        return Outcome{32, {kWait + "fpga read failed: " + std::strerror(injected.error)}};
    };
    Sweep("ddal_rf_fpga_slow_meas_report_wait",
          [&] {
              uint8_t bytes[64];
              return ddal_rf_fpga_slow_meas_report_wait(report.desc, bytes);
          })
        .succeeds(32)
        .when("open", no_version(version_open, kWait, {}))
        .when("ioctl", fails(-1001, {kWait + "ioctl failed: %m"}))
        .when("pread/EIO", in_turn({no_version(version_read, kWait, {}), first_block,
                                    fails(-1001, {kWait + "fpga read failed: %m"})}))
        .when("pread/end", in_turn({no_version(version_end, kWait, {}), changes_nothing(), fails(0, {})}))
        .run();
}

} // namespace
