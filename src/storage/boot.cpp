// Boot-loader settings, diagnostics and update.
#include <ddal/boot.h>

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <ddal/common.h>
#include <ddal/ffs.h>
#include <ddal/sysinfo.h>

#include "core/log.h"
#include "core/program.h"
#include "storage/boot_table.h"

using namespace ddal::storage;

namespace {

constexpr size_t kTextSize = 128;
constexpr size_t kRegisterTextSize = 5; // "0x" and two digits
constexpr uint32_t kResetLoopLimit = 255;
constexpr const char *kImageRoot = "/ffs";
constexpr char kImageName[] = "uImage";
constexpr char kUbootName[] = "u-boot.img";

// The three readers log under the name of the operation that calls them.
int read_text(const char *path, char (&text)[kTextSize], const char *caller)
{
    text[0] = '\0';
    return log_failure_as(caller, ddal_common_read_string(sizeof text, text, path), "error\n");
}

int read_cell(const char *path, uint32_t *value, const char *caller)
{
    uint32_t cell;
    const int result = ddal_common_read_u32val(&cell, path);
    if (result == 0)
        *value = cell;
    else
        log_line_as(LOG_ERR, caller, "error\n");
    return result;
}

int read_flag(const char *path, uint32_t *on, const char *caller)
{
    const int result = read_cell(path, on, caller);
    if (result == 0)
        *on = *on != 0;
    return result;
}

int write_flag(const char *path, uint32_t on)
{
    const uint32_t cell = on != 0;
    return ddal_common_write_u32val(&cell, path);
}

bool parse_decimal(const char *text, uint32_t *value)
{
    int number;
    if (sscanf(text, "%d", &number) != 1)
        return false;
    *value = static_cast<uint32_t>(number);
    return true;
}

int read_error_code(const char *path, const char *program, uint32_t *code, const char *caller)
{
    char text[kTextSize];
    const int result = read_text(path, text, caller);
    if (result != 0)
        return result;
    return parse_decimal(text, code) ? 0 : log_error_as(caller, -EINVAL, "parse %s error code error\n", program);
}

} // namespace

int ddal_boot_update_uboot(const char *file)
{
    const bool below_root = strncmp(file, kImageRoot, strlen(kImageRoot)) == 0;
    char path[kTextSize];
    const int length = snprintf(path, sizeof path, "%s%s", below_root ? "" : kImageRoot, file);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return log_error(-ENAMETOOLONG, "filename '%s' too long for absolute filename\n", file);
    if (access(path, R_OK) != 0)
        return log_errno("error access %s: %m\n", path);

    const int result = ddal::core::code_of(ddal::core::run_program(kUpdateUboot, path));
    return log_failure(result, "update uboot failed: %d\n", result);
}

int ddal_boot_get_uboot_id(uint32_t *id)
{
    char text[kTextSize];
    const int result = read_text(kUbootId, text, __func__);
    if (result != 0)
        return result;
    if (text[0] < '1' || text[0] > '3')
        return log_error(-EFAULT, "uboot ID is undefined\n");
    *id = static_cast<uint32_t>(text[0] - '1');
    return 0;
}

int ddal_boot_get_uboot_version(char *buf)
{
    return log_failure(ddal_common_read_string(kTextSize, buf, kUbootVersion), "error\n");
}

int ddal_boot_get_flashed_uboot_version(char *buf)
{
    return ddal_boot_get_uboot_version(buf);
}

int ddal_boot_get_linux_id(uint32_t *value)
{
    uint32_t running, active;
    const int result = ddal_common_linux_id_get(&running);
    if (result != 0)
        return log_error(result, "error\n");
    const int cell_result = read_cell(kLinuxActiveCell, &active, __func__);
    if (cell_result != 0)
        return cell_result;
    *value = running == active ? 0 : 1;
    return 0;
}

int ddal_boot_get_uboot_err(uint32_t *code)
{
    return read_error_code(kUbootErrorCode, "uboot", code, __func__);
}

int ddal_boot_get_linux_err(uint32_t *code)
{
    return read_error_code(kLinuxErrorCode, "linux", code, __func__);
}

int ddal_boot_get_linux_active(uint32_t *partition)
{
    uint32_t cell;
    const int result = read_cell(kLinuxActiveCell, &cell, __func__);
    if (result == 0)
        *partition = cell + (DDAL_FFS_1 - 1);
    return result;
}

int ddal_boot_get_reset_loop_count(uint32_t *count)
{
    char text[kTextSize] = {};
    const int result = ddal_common_read_string(sizeof text, text, kResetLoopCount);
    if (result != 0)
        return result;
    unsigned number;
    if (sscanf(text, "0x%x", &number) != 1)
        return log_error(-EINVAL, "parse reset loop counter error\n");
    *count = number;
    return 0;
}

int ddal_boot_set_reset_loop_count(uint32_t count)
{
    if (count > kResetLoopLimit)
        return log_error(-EINVAL, "error value out of bound (%d)\n", static_cast<int>(count));
    char text[kRegisterTextSize];
    const int length = snprintf(text, sizeof text, "0x%02X", count);
    if (length < 0 || static_cast<size_t>(length) >= sizeof text)
        return log_error(-EINVAL, "error value 0x%x too long to be placed into scr1\n", count);
    return ddal_common_write_string(text, kResetLoopCount);
}

int ddal_boot_get_lmp_netboot(uint32_t *on)
{
    return read_flag(kNetbootCell, on, __func__);
}

int ddal_boot_get_uart(uint32_t *on)
{
    return read_flag(kUartCell, on, __func__);
}

int ddal_boot_get_lmt(uint32_t *on)
{
    return read_flag(kLmtCell, on, __func__);
}

int ddal_boot_set_lmp_netboot(uint32_t on)
{
    return write_flag(kNetbootCell, on); // kept: not made permanent
}

int ddal_boot_set_uart(uint32_t on)
{
    return write_flag(kUartCell, on); // kept: not made permanent
}

int ddal_boot_set_lmt(uint32_t on)
{
    const int result = write_flag(kLmtCell, on);
    return result != 0 ? result : ddal_sysinfo_update_devicetree_to_flash();
}

int ddal_boot_get_isolcpus(uint32_t *value)
{
    return read_cell(kIsolatedCpusCell, value, __func__);
}

int ddal_boot_set_isolcpus(uint32_t value)
{
    const int result = ddal_common_write_u32val(&value, kIsolatedCpusCell);
    return result != 0 ? result : ddal_sysinfo_update_devicetree_to_flash();
}

int ddal_boot_get_image_name(char *buf)
{
    memcpy(buf, kImageName, sizeof kImageName);
    return 0;
}

int ddal_boot_get_uboot_name(char *buf)
{
    memcpy(buf, kUbootName, sizeof kUbootName);
    return 0;
}
