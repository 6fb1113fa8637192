// The flash file systems, with their partitions and folders.
#pragma once

#include <cstdint>

#include <ddal/ffs.h>

namespace ddal::storage {

struct FlashFileSystem {
    uint32_t id;
    int number;
    const char *partition;
    const char *mapper;
    const char *mount_point;
};

inline constexpr FlashFileSystem kFlashFileSystems[] = {
    {DDAL_FFS_1, 1, "/dev/sda1", "/dev/mapper/decrypted1", "/ffs/fs1"},
    {DDAL_FFS_2, 2, "/dev/sda2", "/dev/mapper/decrypted2", "/ffs/fs2"},
};

// Directories of a clean file system, in the order of their creation.
inline constexpr const char *kStandardDirectories[] = {
    "apps", "addons", "boot", "btsom", "config", "dsp", "logs", "tmp", "trs", "trs_data",
};

inline constexpr const char *kLuksApi = "/usr/bin/luksapi";
inline constexpr const char *kMountTable = "/etc/mtab";

} // namespace ddal::storage
