// Every failure of every call that the operations on flash file systems make. The programs do nothing and exit with 0.
#include <cerrno>
#include <functional>

#include <ddal/ffs.h>
#include <gtest/gtest.h>

#include "storage/program_sweep.h"
#include "support/property_rows.h"

using namespace testing_board;

namespace {

constexpr const char *kMountTable = "/etc/mtab";
constexpr const char *kPlain = "1"; // exit status of "is_luks_formatted"
constexpr const char *kEncrypted = "0";

const std::string kUmount = "umount /ffs/fs1";
const std::string kMkfs = "mkfs.ext4 -F -m0 /dev/mapper/decrypted1";
constexpr const char *kFolders[] = {"apps", "addons", "boot", "btsom", "config",
                                    "dsp",  "logs",   "tmp",  "trs",   "trs_data"};
const std::string kNoTable = "3 ddal_ffs_is_mounted: error opening /etc/mtab";

// All programs exit with 0 and change nothing. The first file system is mounted or not, and encrypted or not.
class FlashSweep : public testing::Test {
protected:
    static void bring_into(const char *encrypted, bool mounted)
    {
        put_file("/run/stub/fail/luksapi.is_luks_formatted", encrypted);
        put_file(kMountTable, mounted ? "/dev/mapper/decrypted1 /ffs/fs1 ext4 rw,relatime 0 0\n" : "");
    }
    ~FlashSweep() override { unlink("/run/stub/fail/luksapi.is_luks_formatted"); }

private:
    const KeptFile table_{kMountTable};
    const FailingProgram luksapi_{"luksapi", "0"};
    const FailingProgram mkfs_{"mkfs.ext4", "0"};
    const FailingProgram mount_{"mount", "0"};
    const FailingProgram umount_{"umount", "0"};
};

ProgramStep luksapi(const std::string &command, const std::string &part, std::vector<std::string> callers = {})
{
    const std::string words = command + " " + part;
    callers.insert(callers.begin(), "3 luksapi: '/usr/bin/luksapi " + words + "' failed: %d");
    return {"luksapi " + words, "/usr/bin/luksapi", ends_with(callers)};
}

// Expects DDAL_ERR_FAILURE, whatever the outcome of the program.
ProgramStep fails_with_1001(ProgramStep step)
{
    step.when_failed = [inner = std::move(step.when_failed)](long outcome) {
        return Outcome{-1001, inner(outcome).lines};
    };
    return step;
}

// If the tool does not run, the partition does not count as encrypted: the library probes it and finds ext4.
ProgramStep type_question(const std::vector<std::string> &runs_of_plain = {})
{
    return {"luksapi is_luks_formatted 1", "/usr/bin/luksapi", [](long) { return Outcome{0, {}}; }, runs_of_plain};
}

// Adds rows for the raw partition, for each operation with its callers' lines. The probe works without some parts of
// it.
void add_probe(Sweep &sweep, const std::vector<std::string> &callers)
{
    const auto failing = [&](int result, const std::string &what) {
        std::vector<std::string> lines = {"3 ddal_ffs_get_fstype: cannot " + what + " /dev/sda1"};
        lines.insert(lines.end(), callers.begin(), callers.end());
        return fails(result, lines);
    };
    sweep.when("open:/dev/sda1", failing(-ENODEV, "open"))
        .when("fstat:/dev/sda1", failing(-ENODEV, "open"))
        .when("lseek:/dev/sda1", changes_nothing())
        .when("read/end:/dev/sda1", changes_nothing())
        .when("read:/dev/sda1", failing(-ENOMEDIUM, "probe"));
}

} // namespace

TEST_F(FlashSweep, Type)
{
    bring_into(kPlain, false);
    const struct {
        const char *name;
        std::function<long()> operation;
        std::vector<std::string> callers;
    } cases[] = {
        {"ddal_ffs_get_fstype",
         [] {
             char type[17] = {};
             const int result = ddal_ffs_get_fstype(DDAL_FFS_1, type);
             EXPECT_EQ(type[0] != '\0', result == 0) << "a failure keeps the text";
             return long{result};
         },
         {}},
        {"ddal_ffs_query_fstype",
         [] {
             uint32_t type;
             return ddal_ffs_query_fstype(DDAL_FFS_1, &type);
         },
         {"3 ddal_ffs_query_fstype: ddal_ffs_get_fstype failed"}},
    };
    for (const auto &c : cases) {
        Sweep sweep(c.name, c.operation);
        with_programs(sweep, {type_question()});
        add_probe(sweep, c.callers);
        sweep.run();
    }
}

TEST_F(FlashSweep, Mounts)
{
    uint32_t state;
    const struct {
        const char *name;
        bool mounted;
        std::function<long()> operation;
        std::vector<std::string> lines; // when the mount table cannot be opened
        std::vector<ProgramStep> programs;
    } cases[] = {
        {"ddal_ffs_is_mounted", true, [&] { return ddal_ffs_is_mounted(DDAL_FFS_1, &state); }, {}, {}},
        {"ddal_ffs_mount",
         false,
         [] { return ddal_ffs_mount(DDAL_FFS_1, DDAL_FFS_TYPE_EXT4, DDAL_FFS_MOUNT_WRITABLE); },
         {"3 ddal_ffs_mount: ddal_ffs_is_mounted returned: -1001"},
         {{"mount /dev/mapper/decrypted1 /ffs/fs1 -c -o rw,relatime,data=ordered", "/bin/mount", ends_with({})}}},
        {"ddal_ffs_remount",
         true,
         [] { return ddal_ffs_remount(DDAL_FFS_1, 0); },
         {"3 ddal_ffs_remount: error"},
         {{"mount /dev/mapper/decrypted1 -oremount -o ro,relatime,data=ordered", "/bin/mount", ends_with({})}}},
        {"ddal_ffs_umount",
         true,
         [] { return ddal_ffs_umount(DDAL_FFS_1); },
         {"3 ddal_ffs_umount: error"},
         {{kUmount, "/bin/umount", ends_with({})}}},
    };
    for (const auto &c : cases) {
        bring_into(kPlain, c.mounted);
        std::vector<std::string> no_table = {kNoTable};
        no_table.insert(no_table.end(), c.lines.begin(), c.lines.end());
        Sweep sweep(c.name, c.operation);
        with_programs(sweep, c.programs).when("fopen", fails(-1001, no_table)).when("fclose", changes_nothing()).run();
    }
}

TEST_F(FlashSweep, Format)
{
    bring_into(kEncrypted, true);
    const std::string unmounting = "3 ddal_ffs_format: Unmounting 53 failed";
    const std::vector<ProgramStep> steps = {
        type_question({kUmount, kMkfs, "luksapi install_uboot_on_dummy_part 2"}),
        {kUmount, "/bin/umount", ends_with({unmounting})},
        luksapi("close_devices", "1"),
        luksapi("link_unencrypted_partition", "1"),
        {kMkfs, "/sbin/mkfs.ext4", ends_with({})},
        luksapi("install_uboot_on_dummy_part", "2"),
    };
    Sweep sweep("ddal_ffs_format", [] { return ddal_ffs_format(DDAL_FFS_1, DDAL_FFS_TYPE_EXT4); });
    with_programs(sweep, steps)
        .when("fopen", fails(-1001, {kNoTable, "3 ddal_ffs_umount: error", unmounting}))
        .when("fclose", changes_nothing())
        .run();
}

TEST_F(FlashSweep, Clean)
{
    bring_into(kEncrypted, false);
    shell("mkdir -p /ffs/fs1");
    const std::string is_luks = "luksapi is_luks_formatted 1";
    const std::string mount = "mount /dev/mapper/decrypted1 /ffs/fs1 -c -o rw,relatime,data=ordered";
    const std::string unformatted = "3 ddal_ffs_cleanfs: Unable to format /dev/mapper/decrypted1";
    const std::string unmounted = "3 ddal_ffs_cleanfs: Unable to mount /ffs/fs1";
    const auto formatting = [&](const std::string &command, const std::string &part) {
        ProgramStep step = luksapi(command, part, {unformatted});
        return fails_with_1001(step);
    };
    const std::vector<ProgramStep> steps = {
        type_question({is_luks, "luksapi close_devices 1", "luksapi link_unencrypted_partition 1", kMkfs,
                       "luksapi install_uboot_on_dummy_part 2", mount}),
        type_question({is_luks, "luksapi unlink_unencrypted_partition 1", "luksapi setup_luks_partition 1",
                       "luksapi create_mapper_devices 1", kMkfs, "luksapi clear_dummy_part 2", mount}),
        formatting("clear_dummy_part", "1"),
        fails_with_1001({kMkfs, "/sbin/mkfs.ext4", ends_with({unformatted})}),
        formatting("clear_dummy_part", "2"),
        fails_with_1001({mount, "/bin/mount", ends_with({unmounted})}),
    };
    std::vector<Expectation> uncreated;
    for (const char *name : kFolders)
        uncreated.push_back(fails(-1001, {std::string("3 ddal_ffs_cleanfs: Could not create /ffs/fs1/") + name}));
    const Expectation no_table_to_unmount =
        fails(-1001, {kNoTable, "3 ddal_ffs_umount: error", "3 ddal_ffs_format: Unmounting 53 failed", unformatted});
    const Expectation no_table_to_mount =
        fails(-1001, {kNoTable, "3 ddal_ffs_mount: ddal_ffs_is_mounted returned: -1001", unmounted});
    Sweep sweep("ddal_ffs_cleanfs", [] { return ddal_ffs_cleanfs(DDAL_FFS_1); });
    with_programs(sweep, steps)
        .before([] {
            for (const char *name : kFolders)
                rmdir((std::string("/ffs/fs1/") + name).c_str());
            put_file("/run/stub/log", "");
        })
        .after([](const Outcome &seen) { // the folders are made last, one after the other
            const std::string last = seen.lines.empty() ? "" : seen.lines.back();
            bool made = seen.result == 0 || last.find("Could not create") != std::string::npos;
            for (const char *name : kFolders) {
                made = made && !last.ends_with(std::string("/") + name);
                EXPECT_EQ(access((std::string("/ffs/fs1/") + name).c_str(), F_OK) == 0, made) << name;
            }
        })
        .when("fopen", in_turn({no_table_to_unmount, no_table_to_unmount, no_table_to_mount}))
        .when("fclose", changes_nothing())
        .when("mkdir", in_turn(uncreated))
        .when("open:/ffs/*", fails(-1001, {"3 ddal_ffs_cleanfs: Could not create /ffs/fs1/"}))
        .when("fsync", changes_nothing())
        .run();
}

TEST_F(FlashSweep, LogicalId)
{
    const std::string caller = "3 ddal_ffs_get_physical_by_logical: get running linux FS error: %d";
    const std::string linux_id = "3 ddal_common_linux_id_get: ";
    const Expectation no_id =
        fails(-1001, {linux_id + "*", "3 ddal_ffs_get_physical_by_logical: get running linux FS error: -1001"});
    uint32_t id;
    Sweep sweep("ddal_ffs_get_physical_by_logical",
                [&] { return ddal_ffs_get_physical_by_logical(DDAL_FFS_OWN, &id); });
    add_reading(sweep, "/proc/device-tree/post/linuxid", {linux_id + "linux ID get error: %d", caller})
        .when("fread/EINTR", changes_nothing())
        .when("fread", no_id)
        .when("fread/short", no_id)
        .run();
}
