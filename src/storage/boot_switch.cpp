// The choice of the Linux installation to boot.
#include <ddal/boot.h>

#include <cstdio>

#include <ddal/common.h>
#include <ddal/ffs.h>
#include <ddal/sysinfo.h>

#include "core/log.h"
#include "core/program.h"
#include "storage/boot_table.h"

using namespace ddal::storage;

namespace {

constexpr uint32_t kPartitionBase = DDAL_FFS_1 - 1;
constexpr size_t kHeaderTextSize = 128;

struct BootHeader {
    const char *name;
    const char *device;
};

constexpr BootHeader kBootHeaders[] = {{"primary", kPrimaryBootHeader}, {"secondary", kSecondaryBootHeader}};

int write_active(uint32_t partition)
{
    const uint32_t cell = partition - kPartitionBase;
    return ddal_common_write_u32val(&cell, kLinuxActiveCell);
}

// Both headers must hold their two numbers before anything on the flash is touched.
int check_boot_headers(const char *caller)
{
    for (const BootHeader &header : kBootHeaders) {
        char text[kHeaderTextSize] = {};
        const int result = ddal::core::code_of(_ddal_common_shell_command_read(
            sizeof text, text, kUbootHeader, ddal::core::ArgumentVector{"-g", header.device}.get()));
        if (result != 0)
            return log_error_as(caller, result, "error %d\n", result);
        unsigned word;
        int number;
        if (sscanf(text, "0x%x %d", &word, &number) != 2)
            return log_error_as(caller, -EINVAL, "parse %s u-boot header error: '%s'\n", header.name, text);
    }
    return 0;
}

int swap_uboot(bool old_is_running, const char *caller)
{
    const int outcome = ddal::core::run_program(kSwapUboot, old_is_running ? "1" : "0");
    if (outcome != 0)
        log_line_as(LOG_ERR, caller,
                    "ddal_common_shell_command(/bin/swap_uboot_partition.sh) error, return value = %d\n", outcome);
    return ddal::core::code_of(outcome);
}

} // namespace

int ddal_boot_set_linux_active(uint32_t partition)
{
    if (partition != DDAL_FFS_1 && partition != DDAL_FFS_2)
        return log_error(-EINVAL, "wrong partition id (%d)\n", static_cast<int>(partition));
    uint32_t old, running;
    int result = ddal_boot_get_linux_active(&old);
    if (result == 0)
        result = write_active(partition);
    if (result == 0)
        result = ddal_common_linux_id_get(&running);
    if (result != 0)
        return log_error(result, "error %d\n", result);
    running += kPartitionBase;

    result = check_boot_headers(__func__);
    if (result == 0 && partition != old)
        result = swap_uboot(old == running, __func__);
    if (result != 0) {
        const int undone = write_active(old);
        return undone != 0 ? log_error(undone, "error %d\n", undone) : result;
    }

    // From here on a failure undoes nothing.
    result = ddal_boot_set_reset_loop_count(0);
    if (result == 0)
        result = ddal_sysinfo_update_devicetree_to_flash();
    if (result == 0)
        result = ddal_common_write_string(partition == running ? "0" : "0x20", kNextReset);
    if (result != 0)
        return log_error(result, "error %d\n", result);
    return 0;
}
