// Type and mounts of the flash file systems.
#include "storage/ffs.h"

#include <blkid/blkid.h>
#include <cstring>
#include <memory>
#include <mntent.h>

#include <ddal/common.h>
#include <ddal/ffs.h>

#include "core/foreign_call.h"
#include "core/log.h"
#include "core/program.h"
#include "core/stream.h"
#include "core/text.h"

using ddal::core::code_of;
using ddal::core::run_program;
using ddal::core::SignalHold;

namespace ddal::storage {

static_assert(kFlashFileSystems[0].id == DDAL_FFS_1 && kFlashFileSystems[1].id == DDAL_FFS_2);

const FlashFileSystem &file_system(uint32_t id)
{
    return kFlashFileSystems[id - DDAL_FFS_1];
}

} // namespace ddal::storage

using namespace ddal::storage;

int ddal_ffs_id_is_valid(uint32_t id)
{
    if (id == DDAL_FFS_1 || id == DDAL_FFS_2)
        return 1;
    return log_error(0, "not supported file system %d\n", static_cast<int>(id));
}

namespace {

constexpr size_t kTypeSize = 17; // size of the caller's buffer
constexpr const char *kLuksType = "luks_ext4";
constexpr const char *kPlainType = "ext4";
constexpr size_t kMountEntrySize = 1024;

struct FreeProbe {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using UniqueProbe = std::unique_ptr<blkid_struct_probe, FreeProbe>;

struct EndMountTable {
    void operator()(FILE *table) const { endmntent(table); }
};
using UniqueMountTable = std::unique_ptr<FILE, EndMountTable>;

const char *mount_options(uint32_t flags)
{
    return flags & DDAL_FFS_MOUNT_WRITABLE ? "rw,relatime,data=ordered" : "ro,relatime,data=ordered";
}

} // namespace

int ddal_ffs_get_fstype(uint32_t id, char *type)
{
    if (!ddal_ffs_id_is_valid(id))
        return log_error(-EINVAL, "error\n");
    const FlashFileSystem &fs = file_system(id);
    if (run_program(kLuksApi, "is_luks_formatted", part_text(fs.number).text) == 0) {
        ddal_common_strlcpy(type, kLuksType, kTypeSize);
        return 0;
    }

    const ddal::core::ForeignCall call; // the probe opens the partition
    const UniqueProbe probe{blkid_new_probe_from_filename(fs.partition)};
    if (!probe)
        return log_error(-ENODEV, "cannot open %s\n", fs.partition);
    if (blkid_do_probe(probe.get()) != 0)
        return log_error(-ENOMEDIUM, "cannot probe %s\n", fs.partition);
    const char *found;
    size_t size; // includes the NUL
    if (blkid_probe_lookup_value(probe.get(), "TYPE", &found, &size) != 0)
        return log_error(-EMEDIUMTYPE, "probe of %s is missing type\n", fs.partition);
    if (size >= kTypeSize)
        return log_error(-ENOSPC, "insufficient space to copy type %.*s for %s\n", static_cast<int>(size), found,
                         fs.partition);
    memcpy(type, found, size);
    return 0;
}

int ddal_ffs_query_fstype(uint32_t id, uint32_t *type)
{
    if (!type)
        return log_error(-EINVAL, "Invalid parameter: type is NULL\n");
    char text[kTypeSize] = {};
    const int result = ddal_ffs_get_fstype(id, text);
    if (result != 0)
        return log_error(result, "ddal_ffs_get_fstype failed\n");

    if (strcmp(text, kLuksType) == 0)
        *type = DDAL_FFS_TYPE_LUKS_EXT4;
    else if (strcmp(text, kPlainType) == 0)
        *type = DDAL_FFS_TYPE_EXT4;
    else if (text[0] == '\0')
        *type = DDAL_FFS_TYPE_NONE;
    else
        return log_error(DDAL_ERR_FAILURE, "Unrecognized fs type: %s\n", text);
    return 0;
}

int ddal_ffs_is_mounted(uint32_t id, uint32_t *state)
{
    if (!ddal_ffs_id_is_valid(id))
        return log_error(-EINVAL, "error\n");
    const FlashFileSystem &fs = file_system(id);
    const UniqueMountTable table{setmntent(kMountTable, "re")};
    if (!table)
        return log_error(DDAL_ERR_FAILURE, "error opening %s\n", kMountTable);

    mntent entry;
    char text[kMountEntrySize];
    const SignalHold hold; // an interrupted read would pass for the end of the table
    do {
        if (!getmntent_r(table.get(), &entry, text, sizeof text)) {
            if (ferror(table.get()))
                return log_error(DDAL_ERR_FAILURE, "error opening %s\n", kMountTable);
            *state = DDAL_FFS_NOT_MOUNTED;
            return 0;
        }
    } while (strcmp(entry.mnt_fsname, fs.mapper) != 0);

    if (entry.mnt_opts[0] == '\0')
        return log_error(-ENOMEM, "insufficent space for mount %s options\n", fs.mapper);
    if (hasmntopt(&entry, "rw"))
        *state = DDAL_FFS_READ_WRITE;
    else if (hasmntopt(&entry, "ro"))
        *state = DDAL_FFS_READ_ONLY;
    else
        return log_error(-EINVAL, "unknown mount options for FS%d returned: '%s'\n", fs.number, entry.mnt_opts);
    return 0;
}

int ddal_ffs_mount(uint32_t id, uint32_t type, uint32_t flags)
{
    if (type != DDAL_FFS_TYPE_EXT4 && type != DDAL_FFS_TYPE_LUKS_EXT4)
        return log_error(-EINVAL, "unsupported FS type: %s (%x)\n", "", type);
    uint32_t state;
    const int result = ddal_ffs_is_mounted(id, &state);
    if (result != 0)
        return log_error(result, "ddal_ffs_is_mounted returned: %d\n", result);
    if (state != DDAL_FFS_NOT_MOUNTED)
        return -EBUSY;
    const FlashFileSystem &fs = file_system(id);
    return code_of(run_program("/bin/mount", fs.mapper, fs.mount_point, "-c", "-o", mount_options(flags)));
}

int ddal_ffs_remount(uint32_t id, uint32_t flags)
{
    uint32_t state;
    const int result = ddal_ffs_is_mounted(id, &state);
    if (result != 0)
        return log_error(result, "error\n");
    if (state == DDAL_FFS_NOT_MOUNTED)
        return log_error(-EINVAL, "error\n");
    return code_of(run_program("/bin/mount", file_system(id).mapper, "-oremount", "-o", mount_options(flags)));
}

int ddal_ffs_umount(uint32_t id)
{
    uint32_t state;
    const int result = ddal_ffs_is_mounted(id, &state);
    if (result != 0)
        return log_error(result, "error\n");
    if (state == DDAL_FFS_NOT_MOUNTED)
        return 0;
    return code_of(run_program("/bin/umount", file_system(id).mount_point));
}

int ddal_ffs_get_physical_by_logical(uint32_t logical, uint32_t *physical)
{
    if (logical != DDAL_FFS_OWN && logical != DDAL_FFS_OTHER)
        return log_error(-EINVAL, "invalid logical FS ID: %d\n", static_cast<int>(logical));
    if (!physical)
        return log_error(-EINVAL, "pointer to FS number is null\n");
    uint32_t running;
    const int result = ddal_common_linux_id_get(&running);
    if (result != 0)
        return log_error(result, "get running linux FS error: %d\n", result);
    if (running != 1 && running != 2)
        return log_error(DDAL_ERR_FAILURE, "invalid linux id: %d\n", static_cast<int>(running));
    *physical = (logical == DDAL_FFS_OWN) == (running == 1) ? DDAL_FFS_1 : DDAL_FFS_2;
    return 0;
}
