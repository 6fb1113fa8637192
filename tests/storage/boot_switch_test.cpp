// The switch of the Linux to boot: its decisions and its rollback. The sweep covers failing calls.
#include <cerrno>

#include <ddal/boot.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/flash_disk.h"
#include "support/board.h"
#include "support/log_watch.h"
#include "support/surroundings.h"

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

std::string wrong_switch()
{
    bring_into(1, 1);
    const int result = ddal_boot_set_linux_active(54);
    end_ticking();
    const std::string seen = std::to_string(result) + " " + picture() + " " + program_runs();
    return seen == "0 2 0x00 0x20 " + kHeaders + "swap_uboot_partition.sh 1\nl2u-dtb update\n" ? "" : seen;
}

TEST(BootSwitch, IsNotCutShortByASignal)
{
    expect_in_each({kTicking}, wrong_switch);
}

TEST(BootSwitch, KnowsHowTheProgramsEndedDespiteReaping)
{
    expect_in_each(kReaping, wrong_switch);
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

TEST(BootSwitch, RestoresTheActivePartitionWhenHeadersOrSwapFail)
{
    const std::string primary = kHeaders.substr(0, kHeaders.find('\n') + 1);
    const struct {
        const char *file, *text; // wrong text of a header
        const char *which;
        std::string runs;
    } cases[] = {
        {kPrimary, "no header", "primary", primary},
        {kPrimary, "0x1", "primary", primary},
        {kSecondary, "27051956 1", "secondary", kHeaders},
    };
    for (const auto &row : cases) {
        bring_into(1, 1);
        put_file(row.file, row.text);
        LogWatch log;
        EXPECT_EQ(ddal_boot_set_linux_active(54), -EINVAL) << row.text;
        EXPECT_THAT(log.take(), ElementsAre(kSet + "parse " + row.which + " u-boot header error: '" + row.text + "'"));
        EXPECT_EQ(program_runs(), row.runs) << row.text;
        EXPECT_EQ(picture(), "1 0x07 unset") << row.text;
    }

    {
        bring_into(1, 1);
        const FailingProgram swap("swap_uboot_partition.sh", "signal KILL");
        LogWatch log;
        EXPECT_EQ(ddal_boot_set_linux_active(54), -EINTR);
        EXPECT_THAT(
            log.take(),
            ElementsAre("4 _ddal_common_shell_command: system ('/bin/swap_uboot_partition.sh') interrupted",
                        kSet + "ddal_common_shell_command(/bin/swap_uboot_partition.sh) error, return value = -4"));
        EXPECT_EQ(program_runs(), kHeaders + "swap_uboot_partition.sh 1\n");
        EXPECT_EQ(picture(), "1 0x07 unset");
    }

    // At most 127 characters are captured.
    bring_into(1, 1);
    put_file(kSecondary, "0x1 2" + std::string(200, ' '));
    EXPECT_EQ(ddal_boot_set_linux_active(54), -ENOBUFS);
    EXPECT_EQ(picture(), "1 0x07 unset");
}

TEST(BootSwitch, ReturnsTheFailureOfTheRollback)
{
    bring_into(1, 1);
    const FailingProgram swap("swap_uboot_partition.sh", "3");
    const Fault second(std::string("open:") + kActive + " nth=2 errno=EROFS");
    LogWatch log;
    EXPECT_EQ(ddal_boot_set_linux_active(54), -EROFS);
    EXPECT_EQ(log.take().back(), kSet + "error -30");
    EXPECT_EQ(picture(), "2 0x07 unset");
}
