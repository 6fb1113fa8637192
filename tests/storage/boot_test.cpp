// Settings and diagnostics of the boot loader, and its update.
#include <cerrno>
#include <cstring>

#include <ddal/boot.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/flash_disk.h"
#include "support/board.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::ElementsAre;

namespace {

const std::string kTree = "/proc/device-tree/";
const std::string kCount = "/sys/class/cpld-usr/cpld-usr/scr1";

using Getter = int (*)(uint32_t *);
using Setter = int (*)(uint32_t);

} // namespace

TEST(Boot, ReadsTextsAsNumbers)
{
    const char *const no_id = "3 ddal_boot_get_uboot_id: uboot ID is undefined";
    const char *const no_uboot = "3 ddal_boot_get_uboot_err: parse uboot error code error";
    const char *const no_linux = "3 ddal_boot_get_linux_err: parse linux error code error";
    struct {
        Getter get;
        std::string path, text;
        int result;
        uint32_t value;
        const char *line = nullptr;
    } const cases[] = {
        {ddal_boot_get_uboot_id, "post/uboot_id", "1", 0, 0},
        {ddal_boot_get_uboot_id, "post/uboot_id", "3\n", 0, 2},
        {ddal_boot_get_uboot_id, "post/uboot_id", "4", -EFAULT, 99, no_id},
        {ddal_boot_get_uboot_id, "post/uboot_id", "", -EFAULT, 99, no_id},
        {ddal_boot_get_uboot_err, "post/uboot_err_code", "17", 0, 17},
        {ddal_boot_get_uboot_err, "post/uboot_err_code", " -3 x", 0, 0xFFFFFFFD},
        {ddal_boot_get_uboot_err, "post/uboot_err_code", "none", -EINVAL, 99, no_uboot},
        {ddal_boot_get_uboot_err, "post/uboot_err_code", std::string(400, ' ') + "5", -EINVAL, 99, no_uboot},
        {ddal_boot_get_linux_err, "post/boot_error", "5", 0, 5},
        {ddal_boot_get_linux_err, "post/boot_error", "", -EINVAL, 99, no_linux},
    };
    for (const auto &row : cases) {
        const KeptFile kept(kTree + row.path);
        put_file(kTree + row.path, row.text);
        LogWatch log;
        uint32_t value = 99;
        EXPECT_EQ(row.get(&value), row.result) << row.path << " '" << row.text << "'";
        EXPECT_EQ(value, row.value) << row.path << " '" << row.text << "'";
        EXPECT_EQ(log.take(), std::vector<std::string>(row.line ? 1 : 0, row.line ? row.line : "")) << row.path;
    }
}

TEST(Boot, ReadsCells)
{
    struct {
        Getter get;
        std::string path;
        uint32_t cell;
        uint32_t value;
    } const cases[] = {
        {ddal_boot_get_linux_active, "uboot/linux_active_partition", 2, 54},
        {ddal_boot_get_lmp_netboot, "uboot/netboot", 0, 0},
        {ddal_boot_get_lmp_netboot, "uboot/netboot", 0x80000000, 1},
        {ddal_boot_get_uart, "uboot/uart", 7, 1},
        {ddal_boot_get_lmt, "uboot/lmt", 1, 1},
        {ddal_boot_get_isolcpus, "uboot/isolcpus", 0x8000000c, 0x8000000c},
    };
    for (const auto &row : cases) {
        const KeptFile kept(kTree + row.path);
        put_cells(kTree + row.path, {row.cell});
        uint32_t value = 99;
        EXPECT_EQ(row.get(&value), 0) << row.path;
        EXPECT_EQ(value, row.value) << row.path;
    }
}

TEST(Boot, ComparesTheRunningLinuxWithTheActiveOne)
{
    const KeptFile kept_running(kTree + "post/linuxid");
    const KeptFile kept_active(kTree + "uboot/linux_active_partition");
    uint32_t value = 99;
    put_cells(kTree + "uboot/linux_active_partition", {2});
    put_file(kTree + "post/linuxid", "os2");
    EXPECT_EQ(ddal_boot_get_linux_id(&value), 0);
    EXPECT_EQ(value, 0u);
    put_file(kTree + "post/linuxid", "os1");
    EXPECT_EQ(ddal_boot_get_linux_id(&value), 0);
    EXPECT_EQ(value, 1u);
    put_file(kTree + "post/linuxid", "os3");
    LogWatch log;
    EXPECT_EQ(ddal_boot_get_linux_id(&value), -1001);
    EXPECT_THAT(log.take(),
                ElementsAre("3 ddal_common_linux_id_get: invalid linux ID: 3", "3 ddal_boot_get_linux_id: error"));
}

TEST(Boot, WritesCellsAndMakesSomePermanent)
{
    struct {
        Setter set;
        std::string path;
        uint32_t value;
        std::string cell;
        const char *runs;
    } const cases[] = {
        {ddal_boot_set_lmp_netboot, "uboot/netboot", 5, {"\0\0\0\1", 4}, ""},
        {ddal_boot_set_lmp_netboot, "uboot/netboot", 0, {"\0\0\0\0", 4}, ""},
        {ddal_boot_set_uart, "uboot/uart", 1, {"\0\0\0\1", 4}, ""},
        {ddal_boot_set_lmt, "uboot/lmt", 0x100, {"\0\0\0\1", 4}, "l2u-dtb update\n"},
        {ddal_boot_set_isolcpus, "uboot/isolcpus", 0x0A0B0C0D, "\x0a\x0b\x0c\x0d", "l2u-dtb update\n"},
    };
    for (const auto &row : cases) {
        const KeptFile kept(kTree + row.path);
        program_runs();
        EXPECT_EQ(row.set(row.value), 0) << row.path;
        EXPECT_EQ(file_content(kTree + row.path), row.cell) << row.path;
        EXPECT_EQ(program_runs(), row.runs) << row.path;

        const Fault fault("open:" + kTree + row.path + " errno=EROFS");
        EXPECT_EQ(row.set(row.value), -EROFS);
        EXPECT_EQ(program_runs(), "") << "a failed write is not made permanent";
    }
}

TEST(Boot, KeepsTheResetLoopCountInARegister)
{
    const KeptFile kept(kCount);
    struct {
        const char *text;
        int result;
        uint32_t value;
    } const texts[] = {{"0x0A\n", 0, 10},   {"0xff", 0, 255},  {"0x1234", 0, 0x1234},
                       {"12", -EINVAL, 99}, {"", -EINVAL, 99}, {"0xzz", -EINVAL, 99}};
    for (const auto &row : texts) {
        put_file(kCount, row.text);
        LogWatch log;
        uint32_t value = 99;
        EXPECT_EQ(ddal_boot_get_reset_loop_count(&value), row.result) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
        EXPECT_EQ(log.take().size(), row.result == 0 ? 0u : 1u);
    }
    for (const auto &[count, text] : {std::pair{0u, "0x00"}, {10u, "0x0A"}, {255u, "0xFF"}}) {
        EXPECT_EQ(ddal_boot_set_reset_loop_count(count), 0);
        EXPECT_EQ(file_content(kCount), text);
    }
    LogWatch log;
    EXPECT_EQ(ddal_boot_set_reset_loop_count(256), -EINVAL);
    EXPECT_EQ(ddal_boot_set_reset_loop_count(0xFFFFFFFF), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_boot_set_reset_loop_count: error value out of bound (256)",
                                        "3 ddal_boot_set_reset_loop_count: error value out of bound (-1)"));
    EXPECT_EQ(file_content(kCount), "0xFF");
}

TEST(Boot, CopiesNamesAndVersion)
{
    const KeptFile kept(kTree + "uboot/version");
    char name[12];
    memset(name, '#', sizeof name);
    EXPECT_EQ(ddal_boot_get_image_name(name), 0);
    EXPECT_EQ(memcmp(name, "uImage\0#", 8), 0);
    EXPECT_EQ(ddal_boot_get_uboot_name(name), 0);
    EXPECT_EQ(memcmp(name, "u-boot.img\0#", 12), 0);

    put_file(kTree + "uboot/version", std::string(200, 'v'));
    char version[129];
    memset(version, '#', sizeof version);
    EXPECT_EQ(ddal_boot_get_uboot_version(version), 0);
    EXPECT_STREQ(version, std::string(127, 'v').c_str());
    EXPECT_EQ(version[128], '#');
}

TEST(BootUpdate, AcceptsImagesBelowTheFlash)
{
    shell("mkdir -p /ffs/images && echo image >/ffs/images/u.img");
    program_runs();
    EXPECT_EQ(ddal_boot_update_uboot("/images/u.img"), 0);
    EXPECT_EQ(ddal_boot_update_uboot("/ffs/images/u.img"), 0);
    EXPECT_EQ(program_runs(), "update_u-boot.sh /ffs/images/u.img\nupdate_u-boot.sh /ffs/images/u.img\n");
    EXPECT_EQ(file_content("/dev/flash/by-name/u-boot"), "image\n");
}

TEST(BootUpdate, ReportsTheFault)
{
    shell("mkdir -p /ffs/images && echo image >/ffs/images/u.img");
    const std::string longest = "/" + std::string(122, 'x'); // 128 bytes with "/ffs" and the NUL
    const std::string too_long = longest + "x";
    const std::string absolute = "/ffs" + too_long;
    struct {
        std::string file;
        int result;
        std::string line;
    } const cases[] = {
        {longest, -ENOENT, "error access /ffs" + longest + ": No such file or directory"},
        {too_long, -ENAMETOOLONG, "filename '" + too_long + "' too long for absolute filename"},
        {absolute, -ENAMETOOLONG, "filename '" + absolute + "' too long for absolute filename"},
    };
    program_runs();
    for (const auto &row : cases) {
        LogWatch log;
        EXPECT_EQ(ddal_boot_update_uboot(row.file.c_str()), row.result);
        EXPECT_THAT(log.take(), ElementsAre("3 ddal_boot_update_uboot: " + row.line));
    }
    EXPECT_EQ(program_runs(), "");
}
