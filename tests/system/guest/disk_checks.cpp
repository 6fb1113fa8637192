// A flash file system on a block device, with the formatting and mounting programs of the system.
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <ddal/error.h>
#include <ddal/ffs.h>

namespace {

const std::string kMountPoint = "/ffs/fs1";

// Runs a command. Returns its exit status, or -1.
int run(std::vector<std::string> command)
{
    std::vector<char *> arguments;
    for (std::string &argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    pid_t pid = 0;
    int status = 0;
    if (posix_spawn(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

uint32_t mount_state()
{
    uint32_t state = UINT32_MAX;
    EXPECT_EQ(ddal_ffs_is_mounted(DDAL_FFS_1, &state), 0);
    return state;
}

bool can_write()
{
    std::ofstream file(kMountPoint + "/config/setting");
    file << "1" << std::flush;
    return file.good();
}

TEST(Disk, IsFormattedMountedAndCleaned)
{
    uint32_t type = 0;
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_1, &type), -ENOMEDIUM); // blank
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_2, &type), -ENODEV);
    ASSERT_EQ(run({"/sbin/mkfs.ext4", "-q", "-F", "/dev/mapper/decrypted1"}), 0);
    EXPECT_EQ(ddal_ffs_query_fstype(DDAL_FFS_1, &type), 0);
    EXPECT_EQ(type, uint32_t{DDAL_FFS_TYPE_EXT4});
    EXPECT_EQ(mount_state(), uint32_t{DDAL_FFS_NOT_MOUNTED});

    ASSERT_EQ(ddal_ffs_cleanfs(DDAL_FFS_1), 0);
    EXPECT_EQ(mount_state(), uint32_t{DDAL_FFS_READ_WRITE});
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(kMountPoint))
        names.insert(entry.path().filename());
    EXPECT_EQ(names, (std::set<std::string>{"addons", "apps", "boot", "btsom", "config", "dsp", "logs", "lost+found",
                                            "tmp", "trs", "trs_data"}));
    EXPECT_TRUE(can_write());
    EXPECT_EQ(ddal_ffs_mount(DDAL_FFS_1, DDAL_FFS_TYPE_EXT4, 0), -EBUSY);

    EXPECT_EQ(ddal_ffs_remount(DDAL_FFS_1, 0), 0);
    EXPECT_EQ(mount_state(), uint32_t{DDAL_FFS_READ_ONLY});
    EXPECT_FALSE(can_write());

    EXPECT_EQ(ddal_ffs_umount(DDAL_FFS_1), 0);
    EXPECT_EQ(mount_state(), uint32_t{DDAL_FFS_NOT_MOUNTED});
    EXPECT_FALSE(std::filesystem::exists(kMountPoint + "/config"));

    EXPECT_EQ(ddal_ffs_mount(DDAL_FFS_1, DDAL_FFS_TYPE_EXT4, 0), 0);
    EXPECT_EQ(mount_state(), uint32_t{DDAL_FFS_READ_ONLY});
    EXPECT_TRUE(std::filesystem::exists(kMountPoint + "/config/setting")); // kept on the disk
    EXPECT_EQ(ddal_ffs_format(DDAL_FFS_1, DDAL_FFS_TYPE_EXT4), 0);         // unmounts the file system first
    EXPECT_EQ(mount_state(), uint32_t{DDAL_FFS_NOT_MOUNTED});
}

} // namespace
