// Formatting of the flash file systems.
#include <ddal/ffs.h>

#include <cstdio>
#include <initializer_list>
#include <sys/stat.h>

#include "core/directory.h"
#include "core/log.h"
#include "core/program.h"
#include "storage/ffs.h"

using ddal::core::code_of;
using ddal::core::run_program;

namespace ddal::storage {

int luksapi(const char *command, int part)
{
    if (part != 1 && part != 2)
        return log_error(-EINVAL, "invalid part %d\n", part);
    const PartText text = part_text(part);
    const int outcome = run_program(kLuksApi, command, text.text);
    if (outcome != 0)
        log_line(LOG_ERR, "'%s %s %s' failed: %d\n", kLuksApi, command, text.text, outcome);
    return code_of(outcome);
}

} // namespace ddal::storage

using namespace ddal::storage;

namespace {

constexpr size_t kPathSize = 128;
constexpr mode_t kDirectoryMode = 0777;

int run_commands(std::initializer_list<const char *> commands, int part)
{
    for (const char *command : commands) {
        const int result = luksapi(command, part);
        if (result != 0)
            return result;
    }
    return 0;
}

int convert_container(int part, uint32_t from, uint32_t to)
{
    if (to == DDAL_FFS_TYPE_LUKS_EXT4) {
        return from == DDAL_FFS_TYPE_LUKS_EXT4
                   ? run_commands({"clear_dummy_part"}, part)
                   : run_commands({"unlink_unencrypted_partition", "setup_luks_partition", "create_mapper_devices"},
                                  part);
    }
    return from == DDAL_FFS_TYPE_LUKS_EXT4 ? run_commands({"close_devices", "link_unencrypted_partition"}, part) : 0;
}

} // namespace

int ddal_ffs_format(uint32_t id, uint32_t type)
{
    if (type != DDAL_FFS_TYPE_EXT4 && type != DDAL_FFS_TYPE_LUKS_EXT4)
        return log_error(-EINVAL, "unsupported FS type: %s (%x)\n", "", type);
    uint32_t current;
    int result = ddal_ffs_query_fstype(id, &current);
    if (result != 0)
        return log_error(result, "ddal_ffs_query_fstype failed, ffsId:%d\n", static_cast<int>(id));
    result = ddal_ffs_umount(id);
    if (result != 0)
        return log_error(result, "Unmounting %d failed\n", static_cast<int>(id));

    const FlashFileSystem &fs = file_system(id);
    result = convert_container(fs.number, current, type);
    if (result != 0)
        return result;
    result = code_of(run_program("/sbin/mkfs.ext4", "-F", "-m0", fs.mapper));
    if (result != 0)
        return result;

    const int dummy_part = fs.number % 2 + 1; // kept: each file system uses the dummy partition of the other
    return luksapi(type == DDAL_FFS_TYPE_EXT4 ? "install_uboot_on_dummy_part" : "clear_dummy_part", dummy_part);
}

int ddal_ffs_cleanfs(uint32_t id)
{
    uint32_t type;
    const int result = ddal_ffs_query_fstype(id, &type);
    if (result != 0)
        return result;
    const FlashFileSystem &fs = file_system(id);
    if (ddal_ffs_format(id, type) != 0)
        return log_error(DDAL_ERR_FAILURE, "Unable to format %s\n", fs.mapper);
    if (ddal_ffs_mount(id, type, DDAL_FFS_MOUNT_WRITABLE) != 0)
        return log_error(DDAL_ERR_FAILURE, "Unable to mount %s\n", fs.mount_point);

    char prefix[kPathSize];
    snprintf(prefix, sizeof prefix, "%s/", fs.mount_point);
    for (const char *name : kStandardDirectories) {
        char path[kPathSize];
        const int length = snprintf(path, sizeof path, "%s%s", prefix, name);
        if (length < 0 || static_cast<size_t>(length) >= sizeof path || mkdir(path, kDirectoryMode) != 0)
            return log_error(DDAL_ERR_FAILURE, "Could not create %s%s\n", prefix, name);
    }
    const ddal::core::UniqueFd root = ddal::core::open_directory_of(prefix);
    if (!root)
        return log_error(DDAL_ERR_FAILURE, "Could not create %s%s\n", prefix, "");
    ddal::core::sync_directory(root.get());
    return 0;
}
