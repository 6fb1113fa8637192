// Every failure of every call that the boot loader's operations make.
#include <cerrno>
#include <functional>

#include <ddal/boot.h>
#include <gtest/gtest.h>

#include "storage/program_sweep.h"
#include "support/property_rows.h"

using namespace testing_board;

namespace {

const std::string kTree = "/proc/device-tree/";
const std::string kActive = kTree + "uboot/linux_active_partition";
const std::string kRunning = kTree + "post/linuxid";
const std::string kCount = "/sys/class/cpld-usr/cpld-usr/scr1";
const std::string kNext = "/sys/class/cpld-usr/cpld-usr/next_reset";

const std::string kToFlash = "3 ddal_sysinfo_update_devicetree_to_flash: l2u-dtb update failed: %d";

ProgramStep to_flash(const std::vector<std::string> &callers = {})
{
    std::vector<std::string> lines = {kToFlash};
    lines.insert(lines.end(), callers.begin(), callers.end());
    return {"l2u-dtb update", "/usr/bin/l2u-dtb", ends_with(lines)};
}

uint32_t value;
char text[128];

} // namespace

TEST(BootSweep, Readers)
{
    const Expectation done = changes_nothing();
    const auto unparsed = [](const std::string &name, const std::string &what) {
        return fails(-EINVAL, {"3 " + name + ": parse " + what + " error"});
    };
    const Expectation no_id = fails(-EFAULT, {"3 ddal_boot_get_uboot_id: uboot ID is undefined"});
    const Expectation no_uboot = unparsed("ddal_boot_get_uboot_err", "uboot error code");
    const Expectation no_linux = unparsed("ddal_boot_get_linux_err", "linux error code");
    const Expectation no_count = unparsed("ddal_boot_get_reset_loop_count", "reset loop counter");
    struct Reader {
        std::string name;
        std::string path;
        std::string content;
        std::function<long()> operation;
        Expectation cut; // the file ends after its first byte
        Expectation emptied;
        bool silent = false; // except for the helper's line
    };
    const auto number = [](int (*get)(uint32_t *)) { return [get] { return long{get(&value)}; }; };
    const auto copy = [](int (*get)(char *)) { return [get] { return long{get(text)}; }; };
    const auto cell = [&](const std::string &name, const char *attribute, int (*get)(uint32_t *)) {
        const Expectation no_cell = fails(-ENODATA, {"3 " + name + ": error"});
        return Reader{name, kTree + "uboot/" + attribute, {"\0\0\0\1", 4}, number(get), no_cell, no_cell};
    };
    const std::string version = "ddal_boot_get_uboot_version", version_file = kTree + "uboot/version";
    const Reader cases[] = {
        {"ddal_boot_get_uboot_id", kTree + "post/uboot_id", "2", number(ddal_boot_get_uboot_id), done, no_id},
        {version, version_file, "v7", copy(ddal_boot_get_uboot_version), done, done},
        {version, version_file, "v7", copy(ddal_boot_get_flashed_uboot_version), done, done},
        {"ddal_boot_get_uboot_err", kTree + "post/uboot_err_code", "17", number(ddal_boot_get_uboot_err), done,
         no_uboot},
        {"ddal_boot_get_linux_err", kTree + "post/boot_error", "17", number(ddal_boot_get_linux_err), done, no_linux},
        {"ddal_boot_get_reset_loop_count", kCount, "0x07", number(ddal_boot_get_reset_loop_count), no_count, no_count,
         true},
        cell("ddal_boot_get_linux_active", "linux_active_partition", ddal_boot_get_linux_active),
        cell("ddal_boot_get_lmp_netboot", "netboot", ddal_boot_get_lmp_netboot),
        cell("ddal_boot_get_uart", "uart", ddal_boot_get_uart),
        cell("ddal_boot_get_lmt", "lmt", ddal_boot_get_lmt),
        cell("ddal_boot_get_isolcpus", "isolcpus", ddal_boot_get_isolcpus),
    };
    for (const auto &c : cases) {
        const KeptFile kept(c.path);
        put_file(c.path, c.content);
        Sweep sweep(c.name, c.operation);
        std::vector<std::string> callers;
        if (!c.silent)
            callers.push_back("3 " + c.name + ": error");
        add_reading(sweep, c.path, callers);
        sweep.when("fread/short", c.cut).when("fread/end", c.emptied).run();
    }
}

TEST(BootSweep, ComparesTwoReadings)
{
    const KeptFile kept_running(kRunning);
    const std::string error = "3 ddal_boot_get_linux_id: error";
    const std::string linux_id = "3 ddal_common_linux_id_get: ";
    const Expectation no_id = fails(-1001, {linux_id + "*", error});
    const Expectation no_cell = fails(-ENODATA, {error});
    put_file(kRunning, "os1");
    Sweep sweep("ddal_boot_get_linux_id", [] { return ddal_boot_get_linux_id(&value); });
    add_reading(sweep, kRunning, {linux_id + "linux ID get error: %d", error});
    add_reading(sweep, kActive, {error});
    sweep.when("fread/short:" + kRunning, no_id)
        .when("fread/end:" + kRunning, no_id)
        .when("fread/short:" + kActive, no_cell)
        .when("fread/end:" + kActive, no_cell)
        .run();
}

TEST(BootSweep, Writers)
{
    const std::string cells = "ddal_common_write_u32val_array";
    const struct {
        const char *name;
        std::string path;
        std::string helper;
        std::function<long()> operation;
        bool permanent;
    } cases[] = {
        {"ddal_boot_set_lmp_netboot", kTree + "uboot/netboot", cells, [] { return ddal_boot_set_lmp_netboot(1); },
         false},
        {"ddal_boot_set_uart", kTree + "uboot/uart", cells, [] { return ddal_boot_set_uart(1); }, false},
        {"ddal_boot_set_lmt", kTree + "uboot/lmt", cells, [] { return ddal_boot_set_lmt(1); }, true},
        {"ddal_boot_set_isolcpus", kTree + "uboot/isolcpus", cells, [] { return ddal_boot_set_isolcpus(6); }, true},
        {"ddal_boot_set_reset_loop_count", kCount, "ddal_common_write_string",
         [] { return ddal_boot_set_reset_loop_count(7); }, false},
    };
    for (const auto &c : cases) {
        const KeptFile kept(c.path);
        Sweep sweep(c.name, c.operation);
        add_writing(sweep, c.path, c.helper, {});
        with_programs(sweep, c.permanent ? std::vector{to_flash()} : std::vector<ProgramStep>{}).run();
    }
}

TEST(BootSweep, Update)
{
    const std::string name = "3 ddal_boot_update_uboot: ";
    shell("mkdir -p /ffs/images && echo image >/ffs/images/u.img");
    Sweep sweep("ddal_boot_update_uboot", [] { return ddal_boot_update_uboot("/images/u.img"); });
    with_programs(sweep, {{"update_u-boot.sh /ffs/images/u.img", "/bin/update_u-boot.sh",
                           ends_with({name + "update uboot failed: %r"})}})
        .when("access", fails_with_errno(name + "error access /ffs/images/u.img: %m"))
        .run();
}

TEST(BootSweep, Switch)
{
    const std::string set = "3 ddal_boot_set_linux_active: ";
    const std::string error = set + "error %d";
    const std::string header = "/dev/flash/by-name/";
    const std::string no_id = "3 ddal_common_linux_id_get: ";
    const KeptFile kept_active(kActive), kept_running(kRunning), kept_count(kCount), kept_next(kNext);
    const auto ask = [&](const std::string &which) {
        return ProgramStep{"ubootheader -g " + header + which,
                           "/usr/bin/ubootheader",
                           ends_with({set + "error %r"}),
                           {},
                           "_ddal_common_shell_command_read: popen"};
    };
    const std::vector<ProgramStep> steps = {
        ask("p_boot_header"),
        ask("s_boot_header"),
        {"swap_uboot_partition.sh 1", "/bin/swap_uboot_partition.sh",
         ends_with({set + "ddal_common_shell_command(/bin/swap_uboot_partition.sh) error, return value = %d"})},
        to_flash({set + "error %r"})};
    long last = 0;
    Sweep sweep("ddal_boot_set_linux_active", [&] { return last = ddal_boot_set_linux_active(54); });
    add_reading(sweep, kActive, {"3 ddal_boot_get_linux_active: error", error});
    add_reading(sweep, kRunning, {no_id + "linux ID get error: %d", error});
    add_writing(sweep, kActive, "ddal_common_write_u32val_array", {error});
    add_writing(sweep, kCount, "ddal_common_write_string", {error});
    add_writing(sweep, kNext, "ddal_common_write_string", {error});
    with_programs(sweep, steps);
    const Expectation no_cell = fails(-ENODATA, {"3 ddal_boot_get_linux_active: error", set + "error -61"});
    const Expectation no_linux = fails(-1001, {no_id + "*", set + "error -1001"});
    const Expectation unread = fails(-EIO, {"3 _ddal_common_shell_command_read: ferror(out *", set + "error -5"});
    const auto unparsed = [&](const std::string &what) -> Expectation {
        return [&set, what](const Injected &, const Outcome &) {
            const bool first = lines_of(file_content("/run/stub/log")).size() == 1;
            return Outcome{
                -EINVAL, {set + "parse " + (first ? "primary" : "secondary") + " u-boot header error: '" + what + "'"}};
        };
    };
    // The tool may write before its pipe is closed, or fail to.
    const Expectation not_heard = [&](const Injected &injected, const Outcome &success) {
        return last == -EINVAL ? unparsed("")(injected, success) : Outcome{-1001, {set + "error -1001"}};
    };
    sweep
        .before([&] {
            put_cells(kActive, {1});
            put_file(kRunning, "os1");
            put_file(kCount, "0x07");
            put_file(kNext, "unset");
            put_file(header + "p_boot_header", "0x27051956 3\n");
            put_file(header + "s_boot_header", "0x1 2\n");
            put_file("/run/stub/log", "");
        })
        .after([&](const Outcome &seen) {
            const size_t runs = lines_of(file_content("/run/stub/log")).size();
            const std::string active = file_content(kActive);
            const std::string others = file_content(kCount) + " " + file_content(kNext);
            const std::string first = seen.lines.empty() ? "" : seen.lines.front();
            const auto says = [&](const std::string &text) { return first.find(text) != std::string::npos; };
            if (seen.result == 0) {
                EXPECT_EQ(others, "0x00 0x20");
            }
            if (runs >= 3) { // the swap cannot be rolled back
                EXPECT_EQ(active, std::string("\0\0\0\2", 4));
            } else {
                EXPECT_EQ(others, "0x07 unset");
                // A failed write may leave any content. As long as the running Linux is unknown, there is nothing to
                // roll back.
                const char expected = says(kRunning) || says("linux_id_get") ? 2 : 1;
                if (!says("_array: error write") && !says("_array: error close")) {
                    EXPECT_EQ(active, std::string(3, '\0') + expected);
                }
            }
            const auto expect_end = [&](size_t programs, const char *count_and_reset) {
                EXPECT_EQ(runs, programs) << first;
                EXPECT_EQ(others, count_and_reset) << first;
            };
            if (says("error open " + kCount))
                expect_end(3, "0x07 unset");
            if (says("l2u-dtb"))
                expect_end(3, "0x00 unset");
            if (says("error open " + kNext))
                expect_end(4, "0x00 unset");
        })
        .when("fread/short:" + kActive, no_cell)
        .when("fread/end:" + kActive, no_cell)
        .when("fread/short:" + kRunning, no_linux)
        .when("fread/end:" + kRunning, no_linux)
        .when("fread/EIO", unread)
        .when("fread/short", unparsed("0"))
        .when("fread/end", not_heard)
        .when("fclose", changes_nothing())
        .run();
}
