// The switch of the Linux to boot: each of its steps failing in turn, and what is then undone.
#include <cerrno>

#include <ddal/boot.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/flash_disk.h"
#include "support/board.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::ElementsAre;

namespace {

constexpr const char *kActive = "/proc/device-tree/uboot/linux_active_partition";
constexpr const char *kRunning = "/proc/device-tree/post/linuxid";
constexpr const char *kCount = "/sys/class/cpld-usr/cpld-usr/scr1";
constexpr const char *kNext = "/sys/class/cpld-usr/cpld-usr/next_reset";
constexpr const char *kPrimary = "/dev/flash/by-name/p_boot_header";
constexpr const char *kSecondary = "/dev/flash/by-name/s_boot_header";

const std::string kHeaders = "ubootheader -g /dev/flash/by-name/p_boot_header\n"
                             "ubootheader -g /dev/flash/by-name/s_boot_header\n";
const std::string kSet = "3 ddal_boot_set_linux_active: ";

void bring_into(uint32_t active, uint32_t running)
{
    put_cells(kActive, {active});
    put_file(kRunning, "os" + std::to_string(running));
    put_file(kCount, "0x07");
    put_file(kNext, "unset");
    put_file(kPrimary, "0x27051956 3\n");
    put_file(kSecondary, "0x1 -2\n");
    program_runs();
}

// "<active> <reset-loop count> <next reset>"
std::string picture()
{
    return std::to_string(static_cast<int>(file_content(kActive).back())) + " " + file_content(kCount) + " " +
           file_content(kNext);
}

} // namespace

TEST(BootSwitch, PreparesTheNextReset)
{
    struct {
        uint32_t active, running, to;
        const char *swap;
        const char *after;
    } const cases[] = {
        {1, 1, 54, "swap_uboot_partition.sh 1\n", "2 0x00 0x20"},
        {2, 1, 53, "swap_uboot_partition.sh 0\n", "1 0x00 0"},
        {1, 2, 54, "swap_uboot_partition.sh 0\n", "2 0x00 0"},
        {2, 2, 53, "swap_uboot_partition.sh 1\n", "1 0x00 0x20"},
        {1, 1, 53, "", "1 0x00 0"},
        {1, 2, 53, "", "1 0x00 0x20"},
    };
    for (const auto &row : cases) {
        bring_into(row.active, row.running);
        LogWatch log;
        EXPECT_EQ(ddal_boot_set_linux_active(row.to), 0);
        EXPECT_EQ(program_runs(), kHeaders + row.swap + "l2u-dtb update\n");
        EXPECT_EQ(picture(), row.after);
        EXPECT_EQ(log.take(), std::vector<std::string>{});
    }
}

TEST(BootSwitch, RefusesOtherPartitions)
{
    bring_into(1, 1);
    LogWatch log;
    EXPECT_EQ(ddal_boot_set_linux_active(52), -EINVAL);
    EXPECT_EQ(ddal_boot_set_linux_active(2), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre(kSet + "wrong partition id (52)", kSet + "wrong partition id (2)"));
    EXPECT_EQ(picture(), "1 0x07 unset");
    EXPECT_EQ(program_runs(), "");
}

TEST(BootSwitch, UndoesNothingOfItsFirstSteps)
{
    struct {
        const char *fault;
        int result;
        std::vector<std::string> lines;
        const char *after;
    } const cases[] = {
        {"fopen:/proc/device-tree/uboot/linux_active_partition errno=EACCES",
         -EACCES,
         {"3 ddal_common_read_file: error open /proc/device-tree/uboot/linux_active_partition: Permission denied",
          "3 ddal_boot_get_linux_active: error", kSet + "error -13"},
         "1 0x07 unset"},
        {"open:/proc/device-tree/uboot/linux_active_partition errno=EROFS",
         -EROFS,
         {"3 ddal_common_write_u32val_array: error open /proc/device-tree/uboot/linux_active_partition: Read-only file "
          "system",
          kSet + "error -30"},
         "1 0x07 unset"},
        {"fopen:/proc/device-tree/post/linuxid errno=EACCES",
         -EACCES,
         {"3 ddal_common_read_file: error open /proc/device-tree/post/linuxid: Permission denied",
          "3 ddal_common_linux_id_get: linux ID get error: -13", kSet + "error -13"},
         "2 0x07 unset"},
    };
    for (const auto &row : cases) {
        bring_into(1, 1);
        const Fault fault(row.fault);
        LogWatch log;
        EXPECT_EQ(ddal_boot_set_linux_active(54), row.result) << row.fault;
        std::vector<std::string> lines = log.take();
        EXPECT_EQ(lines, row.lines) << row.fault;
        EXPECT_EQ(picture(), row.after) << row.fault;
        EXPECT_EQ(program_runs(), "") << row.fault;
    }
}

TEST(BootSwitch, PutsTheActivePartitionBackWhenHeadersOrSwapFail)
{
    const std::string primary = kHeaders.substr(0, kHeaders.find('\n') + 1);
    const std::string swap_failed =
        kSet + "ddal_common_shell_command(/bin/swap_uboot_partition.sh) error, return value = ";
    struct {
        const char *what;
        const char *file, *text;   // what a header says instead
        const char *program, *how; // what fails
        int result;
        std::vector<std::string> lines;
        std::string runs;
    } const cases[] = {
        {"primary tool", nullptr, nullptr, "ubootheader.-g.p_boot_header", "2", -1001, {kSet + "error -1001"}, primary},
        {"primary text",
         kPrimary,
         "no header",
         nullptr,
         nullptr,
         -EINVAL,
         {kSet + "parse primary u-boot header error: 'no header'"},
         primary},
        {"primary with one number",
         kPrimary,
         "0x1",
         nullptr,
         nullptr,
         -EINVAL,
         {kSet + "parse primary u-boot header error: '0x1'"},
         primary},
        {"secondary tool",
         nullptr,
         nullptr,
         "ubootheader.-g.s_boot_header",
         "1",
         -1001,
         {kSet + "error -1001"},
         kHeaders},
        {"secondary text",
         kSecondary,
         "27051956 1",
         nullptr,
         nullptr,
         -EINVAL,
         {kSet + "parse secondary u-boot header error: '27051956 1'"},
         kHeaders},
        {"swap",
         nullptr,
         nullptr,
         "swap_uboot_partition.sh",
         "3",
         -1001,
         {swap_failed + "3"},
         kHeaders + "swap_uboot_partition.sh 1\n"},
        {"killed swap",
         nullptr,
         nullptr,
         "swap_uboot_partition.sh",
         "signal KILL",
         -EINTR,
         {"4 _ddal_common_shell_command: system ('/bin/swap_uboot_partition.sh') interrupted", swap_failed + "-4"},
         kHeaders + "swap_uboot_partition.sh 1\n"},
    };
    for (const auto &row : cases) {
        bring_into(1, 1);
        if (row.file)
            put_file(row.file, row.text);
        std::unique_ptr<FailingProgram> failing;
        if (row.program)
            failing = std::make_unique<FailingProgram>(row.program, row.how);
        LogWatch log;
        EXPECT_EQ(ddal_boot_set_linux_active(54), row.result) << row.what;
        EXPECT_EQ(log.take(), row.lines) << row.what;
        EXPECT_EQ(program_runs(), row.runs) << row.what;
        EXPECT_EQ(picture(), "1 0x07 unset") << row.what;
    }

    // More than 127 characters are not captured.
    bring_into(1, 1);
    put_file(kSecondary, "0x1 2" + std::string(200, ' '));
    EXPECT_EQ(ddal_boot_set_linux_active(54), -ENOBUFS);
    EXPECT_EQ(picture(), "1 0x07 unset");
}

TEST(BootSwitch, ReturnsTheFailureOfPuttingBack)
{
    bring_into(1, 1);
    const FailingProgram swap("swap_uboot_partition.sh", "3");
    const Fault second(std::string("open:") + kActive + " nth=2 errno=EROFS");
    LogWatch log;
    EXPECT_EQ(ddal_boot_set_linux_active(54), -EROFS);
    EXPECT_EQ(log.take().back(), kSet + "error -30");
    EXPECT_EQ(picture(), "2 0x07 unset");
}

TEST(BootSwitch, UndoesNothingAfterTheSwap)
{
    const std::string runs = kHeaders + "swap_uboot_partition.sh 1\n";
    struct {
        const char *what;
        const char *fault;
        bool tool_fails;
        int result;
        std::string runs;
        const char *after;
    } const cases[] = {
        {"count", "open:/sys/class/cpld-usr/cpld-usr/scr1 errno=EIO", false, -EIO, runs, "2 0x07 unset"},
        {"flash", nullptr, true, -1001, runs + "l2u-dtb update\n", "2 0x00 unset"},
        {"next reset", "open:/sys/class/cpld-usr/cpld-usr/next_reset errno=EIO", false, -EIO, runs + "l2u-dtb update\n",
         "2 0x00 unset"},
    };
    for (const auto &row : cases) {
        bring_into(1, 1);
        std::unique_ptr<Fault> fault;
        std::unique_ptr<FailingProgram> tool;
        if (row.fault)
            fault = std::make_unique<Fault>(row.fault);
        if (row.tool_fails)
            tool = std::make_unique<FailingProgram>("l2u-dtb.update", "1");
        LogWatch log;
        EXPECT_EQ(ddal_boot_set_linux_active(54), row.result) << row.what;
        EXPECT_EQ(log.take().back(), kSet + "error " + std::to_string(row.result)) << row.what;
        EXPECT_EQ(program_runs(), row.runs) << row.what;
        EXPECT_EQ(picture(), row.after) << row.what;
    }
}
