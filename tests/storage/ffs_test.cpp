// Type, mount state and mounts of the flash file systems.
#include <cerrno>
#include <cstring>
#include <functional>

#include <ddal/ffs.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/flash_disk.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kTable = "/etc/mtab";
constexpr const char *kBase = "/dev/root / squashfs ro,relatime 0 0\n";

std::string type_of(uint32_t id, int expected)
{
    char type[17] = {};
    EXPECT_EQ(ddal_ffs_get_fstype(id, type), expected);
    return type;
}

uint32_t state_of(uint32_t id)
{
    uint32_t state = 99;
    EXPECT_EQ(ddal_ffs_is_mounted(id, &state), 0);
    return state;
}

// A version 1 RAID member with the fields that a probe reads. Its type has 17 characters.
std::string raid_member()
{
    std::string image(4 << 20, '\0'); // the probe does not search small disks for members
    const auto put = [&](size_t offset, uint64_t value, size_t size) { memcpy(&image[4096 + offset], &value, size); };
    put(0, 0xa92b4efc, 4);   // magic
    put(4, 1, 4);            // major version
    put(144, 4096 / 512, 8); // sector of this superblock
    return image;
}

} // namespace

TEST(FlashType, IsTheAnswerOfTheProbe)
{
    const KeptFile kept("/dev/sda2");
    std::string noise(1 << 20, '\0');
    uint32_t seed = 1;
    for (char &byte : noise)
        byte = static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
    EXPECT_EQ(type_of(DDAL_FFS_2, 0), "ext4"); // a real file system

    struct {
        const char *what;
        std::string image;
        int result;
        std::string line;
    } const cases[] = {
        {"empty", std::string(1 << 20, '\0'), -ENOMEDIUM, "cannot probe /dev/sda2"},
        {"noise", noise, -ENOMEDIUM, "cannot probe /dev/sda2"},
        {"no bytes", "", -ENOMEDIUM, "cannot probe /dev/sda2"},
        {"long type", raid_member(), -ENOSPC, "insufficient space to copy type linux_raid_member*"},
    };
    for (const auto &row : cases) {
        put_file("/dev/sda2", row.image);
        LogWatch log;
        uint32_t type = 99;
        EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_2, &type), row.result) << row.what;
        EXPECT_EQ(type, 99u);
        const std::vector<std::string> lines = log.take();
        ASSERT_EQ(lines.size(), 2u) << row.what;
        const std::string pattern = "3 ddal_ffs_get_fstype: " + row.line;
        const bool open_end = pattern.back() == '*';
        EXPECT_EQ(lines[0].substr(0, pattern.size() - open_end), pattern.substr(0, pattern.size() - open_end))
            << row.what;
        EXPECT_EQ(lines[1], "3 ddal_ffs_query_fstype: ddal_ffs_get_fstype failed");
    }
}

TEST(FlashType, BecomesANumber)
{
    const KeptFile kept("/dev/sda2");
    uint32_t type = 0;
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_2, &type), 0);
    EXPECT_EQ(type, 2u);
    shell("truncate -s 0 /dev/sda2; truncate -s 4M /dev/sda2; /sbin/mke2fs -q -t ext2 -F /dev/sda2");
    LogWatch log;
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_2, &type), -1001);
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_2, nullptr), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_ffs_query_fstype: Unrecognized fs type: ext2",
                                        "3 ddal_ffs_query_fstype: Invalid parameter: type is NULL"));
    put_file("/dev/sda2", "LUKS");
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_2, &type), 0);
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(type_of(DDAL_FFS_2, 0), "luks_ext4");
}

TEST(FlashType, IsProbedWhenTheToolFails)
{
    const FailingProgram tool("luksapi.is_luks_formatted", "signal KILL");
    EXPECT_EQ(type_of(DDAL_FFS_1, 0), "ext4");
}

TEST(FlashIds, AreCheckedBeforeAnythingRuns)
{
    program_runs();
    uint32_t value = 99;
    char type[17] = {};
    const auto refused = [](uint32_t id) {
        return "3 ddal_ffs_id_is_valid: not supported file system " + std::to_string(id);
    };
    const auto error = [](const std::string &function) { return "3 " + function + ": error"; };
    const std::string mounted = error("ddal_ffs_is_mounted");
    struct {
        std::function<int(uint32_t)> call;
        std::vector<std::string> lines; // after the line about the id
    } const cases[] = {
        {[&](uint32_t id) { return ddal_ffs_get_fstype(id, type); }, {error("ddal_ffs_get_fstype")}},
        {[&](uint32_t id) { return ddal_ffs_is_mounted(id, &value); }, {mounted}},
        {[](uint32_t id) { return ddal_ffs_remount(id, 0); }, {mounted, error("ddal_ffs_remount")}},
        {[](uint32_t id) { return ddal_ffs_umount(id); }, {mounted, error("ddal_ffs_umount")}},
        {[](uint32_t id) { return ddal_ffs_mount(id, 2, 0); },
         {mounted, "3 ddal_ffs_mount: ddal_ffs_is_mounted returned: -22"}},
    };
    for (const auto &row : cases) {
        for (const uint32_t id : {52u, 55u}) {
            LogWatch log;
            EXPECT_EQ(row.call(id), -EINVAL);
            std::vector<std::string> lines = {refused(id)};
            lines.insert(lines.end(), row.lines.begin(), row.lines.end());
            EXPECT_EQ(log.take(), lines);
        }
    }
    LogWatch log;
    EXPECT_EQ(ddal_ffs_mount(52, 1, 0), -EINVAL); // the type is checked first
    EXPECT_EQ(ddal_ffs_format(52, 4), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_ffs_mount: unsupported FS type:  (1)",
                                        "3 ddal_ffs_format: unsupported FS type:  (4)"));
    EXPECT_EQ(program_runs(), "");
    EXPECT_EQ(value, 99u);
}

TEST(FlashMountState, FollowsTheFirstEntry)
{
    const KeptFile kept(kTable);
    const std::string entry = "/dev/mapper/decrypted1 /ffs/fs1 ext4 ";
    struct {
        std::string table;
        int result;
        uint32_t state;
        std::vector<std::string> lines;
    } const cases[] = {
        {"", 0, 0, {}},
        {kBase, 0, 0, {}},
        {kBase + entry + "rw,relatime 0 0\n", 0, 2, {}},
        {entry + "ro,relatime 0 0\n" + kBase, 0, 1, {}},
        {entry + "ro 0 0\n" + entry + "rw 0 0\n", 0, 1, {}},
        {"/dev/mapper/decrypted2 /ffs/fs1 ext4 rw 0 0\n", 0, 0, {}},
        {"/dev/mapper/decrypted11 /ffs/fs1 ext4 rw 0 0\n", 0, 0, {}},
        {entry + "errors=remount-ro,row 0 0\n",
         -EINVAL,
         99,
         {"3 ddal_ffs_is_mounted: unknown mount options for FS1 returned: 'errors=remount-ro,row'"}},
        {"/dev/mapper/decrypted1 /ffs/fs1 ext4\n",
         -ENOMEM,
         99,
         {"3 ddal_ffs_is_mounted: insufficent space for mount /dev/mapper/decrypted1 options"}},
        {std::string(3000, '#') + "\n" + entry + "rw 0 0\n", 0, 2, {}},
    };
    for (const auto &row : cases) {
        put_file(kTable, row.table);
        LogWatch log;
        uint32_t state = 99;
        EXPECT_EQ(ddal_ffs_is_mounted(DDAL_FFS_1, &state), row.result) << row.table;
        EXPECT_EQ(state, row.state) << row.table;
        EXPECT_EQ(log.take(), row.lines) << row.table;
    }
}

TEST(FlashMount, RunsTheProgramsWithTheirArguments)
{
    program_runs();
    LogWatch log;
    EXPECT_EQ(ddal_ffs_umount(DDAL_FFS_2), 0); // not mounted, so there is nothing to do
    EXPECT_EQ(program_runs(), "");
    EXPECT_EQ(ddal_ffs_remount(DDAL_FFS_2, 0), -EINVAL);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_ffs_remount: error"));

    EXPECT_EQ(ddal_ffs_mount(DDAL_FFS_2, DDAL_FFS_TYPE_LUKS_EXT4, 2), 0); // only bit 0 makes it writable
    EXPECT_EQ(state_of(DDAL_FFS_2), 1u);
    EXPECT_EQ(ddal_ffs_mount(DDAL_FFS_2, DDAL_FFS_TYPE_EXT4, 1), -EBUSY);
    EXPECT_EQ(ddal_ffs_remount(DDAL_FFS_2, 3), 0);
    EXPECT_EQ(state_of(DDAL_FFS_2), 2u);
    EXPECT_EQ(ddal_ffs_umount(DDAL_FFS_2), 0);
    EXPECT_EQ(state_of(DDAL_FFS_2), 0u);
    EXPECT_EQ(program_runs(), "mount /dev/mapper/decrypted2 /ffs/fs2 -c -o ro,relatime,data=ordered\n"
                              "mount /dev/mapper/decrypted2 -oremount -o rw,relatime,data=ordered\n"
                              "umount /ffs/fs2\n");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(FlashLogicalId, DependsOnTheRunningLinux)
{
    const KeptFile kept("/proc/device-tree/post/linuxid");
    struct {
        const char *running;
        uint32_t own, other;
    } const cases[] = {{"os1", 53, 54}, {"os2", 54, 53}};
    for (const auto &row : cases) {
        put_file("/proc/device-tree/post/linuxid", row.running);
        uint32_t id = 0;
        EXPECT_EQ(ddal_ffs_get_physical_by_logical(DDAL_FFS_OWN, &id), 0);
        EXPECT_EQ(id, row.own);
        EXPECT_EQ(ddal_ffs_get_physical_by_logical(DDAL_FFS_OTHER, &id), 0);
        EXPECT_EQ(id, row.other);
    }
    LogWatch log;
    uint32_t id = 99;
    EXPECT_EQ(ddal_ffs_get_physical_by_logical(127, nullptr), -EINVAL); // the logical id is checked first
    EXPECT_EQ(ddal_ffs_get_physical_by_logical(DDAL_FFS_OWN, nullptr), -EINVAL);
    put_file("/proc/device-tree/post/linuxid", "os7");
    EXPECT_EQ(ddal_ffs_get_physical_by_logical(DDAL_FFS_OWN, &id), -1001);
    EXPECT_EQ(id, 99u);
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_ffs_get_physical_by_logical: invalid logical FS ID: 127",
                                        "3 ddal_ffs_get_physical_by_logical: pointer to FS number is null",
                                        "3 ddal_common_linux_id_get: invalid linux ID: 7",
                                        "3 ddal_ffs_get_physical_by_logical: get running linux FS error: -1001"));
}
