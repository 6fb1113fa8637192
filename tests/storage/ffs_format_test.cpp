// Formatting in all conversions. The sweep fails each step in turn.
#include <cerrno>

#include <ddal/ffs.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "storage/flash_disk.h"
#include "support/log_watch.h"

using namespace testing_board;
using testing::ElementsAre;

namespace {

const struct {
    const char *what;
    int n;
    uint32_t from, to;
    const char *runs; // after reading the type and unmounting the file system
} kConversions[] = {
    {"plain to plain", 1, 2, 2, "mkfs.ext4 -F -m0 /dev/mapper/decrypted1\nluksapi install_uboot_on_dummy_part 2\n"},
    {"plain to encrypted", 2, 2, 3,
     "luksapi unlink_unencrypted_partition 2\nluksapi setup_luks_partition 2\nluksapi create_mapper_devices 2\n"
     "mkfs.ext4 -F -m0 /dev/mapper/decrypted2\nluksapi clear_dummy_part 1\n"},
    {"encrypted to encrypted", 1, 3, 3,
     "luksapi clear_dummy_part 1\nmkfs.ext4 -F -m0 /dev/mapper/decrypted1\nluksapi clear_dummy_part 2\n"},
    {"encrypted to plain", 2, 3, 2,
     "luksapi close_devices 2\nluksapi link_unencrypted_partition 2\nmkfs.ext4 -F -m0 /dev/mapper/decrypted2\n"
     "luksapi install_uboot_on_dummy_part 1\n"},
};

// Gives the file system that type and mounts it.
void bring_into(int n, uint32_t type)
{
    const std::string number = std::to_string(n);
    shell("umount /ffs/fs" + number + " 2>/dev/null; rm -f /dev/mapper/decrypted" + number +
          "; luksapi link_unencrypted_partition " + number + " && mkfs.ext4 -F /dev/mapper/decrypted" + number);
    if (type == DDAL_FFS_TYPE_LUKS_EXT4)
        shell("luksapi unlink_unencrypted_partition " + number + "; luksapi setup_luks_partition " + number +
              "; luksapi create_mapper_devices " + number + "; mkfs.ext4 -F /dev/mapper/decrypted" + number);
    shell("mount /dev/mapper/decrypted" + number + " /ffs/fs" + number + " -c -o rw");
    program_runs();
}

std::string head_of(int n)
{
    const std::string number = std::to_string(n);
    return "luksapi is_luks_formatted " + number + "\numount /ffs/fs" + number + "\n";
}

} // namespace

TEST(FlashFormat, DoesItsStepsInOrder)
{
    for (const auto &conversion : kConversions) {
        const uint32_t id = 52 + static_cast<uint32_t>(conversion.n);
        bring_into(conversion.n, conversion.from);
        LogWatch log;
        EXPECT_EQ(ddal_ffs_format(id, conversion.to), 0) << conversion.what;
        EXPECT_EQ(program_runs(), head_of(conversion.n) + conversion.runs) << conversion.what;
        EXPECT_EQ(log.take(), std::vector<std::string>{}) << conversion.what;
        uint32_t value = 0;
        EXPECT_EQ(ddal_ffs_query_fstype(id, &value), 0);
        EXPECT_EQ(value, conversion.to) << conversion.what;
        EXPECT_EQ(ddal_ffs_is_mounted(id, &value), 0);
        EXPECT_EQ(value, 0u) << conversion.what << " leaves it unmounted";
    }
}

TEST(FlashFormat, DoesNothingWhenTypeOrMountIsUnknown)
{
    bring_into(1, DDAL_FFS_TYPE_EXT4);
    const KeptFile kept("/dev/sda1");
    put_file("/dev/sda1", std::string(1 << 20, '\0'));
    LogWatch log;
    EXPECT_EQ(ddal_ffs_format(53, 2), -ENOMEDIUM);
    EXPECT_EQ(program_runs(), "luksapi is_luks_formatted 1\n");
    EXPECT_THAT(log.take(), ElementsAre("3 ddal_ffs_get_fstype: cannot probe /dev/sda1",
                                        "3 ddal_ffs_query_fstype: ddal_ffs_get_fstype failed",
                                        "3 ddal_ffs_format: ddal_ffs_query_fstype failed, ffsId:53"));
}

TEST(FlashClean, LeavesTheStandardFolders)
{
    bring_into(2, DDAL_FFS_TYPE_LUKS_EXT4);
    shell("touch /ffs/fs2/old");
    EXPECT_EQ(ddal_ffs_cleanfs(54), 0);
    EXPECT_EQ(program_runs(), "luksapi is_luks_formatted 2\n" + head_of(2) +
                                  "luksapi clear_dummy_part 2\nmkfs.ext4 -F -m0 /dev/mapper/decrypted2\n"
                                  "luksapi clear_dummy_part 1\n"
                                  "mount /dev/mapper/decrypted2 /ffs/fs2 -c -o rw,relatime,data=ordered\n");
    shell("ls /ffs/fs2/ | tr '\\n' ' ' >/run/names");
    EXPECT_EQ(file_content("/run/names"), "addons apps boot btsom config dsp logs tmp trs trs_data ");
    uint32_t state = 0;
    EXPECT_EQ(ddal_ffs_is_mounted(54, &state), 0);
    EXPECT_EQ(state, 2u);
}
