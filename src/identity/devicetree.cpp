// Identity properties of the device tree: texts, numbers, the DSP population.
#include <ddal/devicetree.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <ddal/common.h>
#include <ddal/sysinfo.h>
#include <ddal/unit.h>

#include "core/log.h"
#include "identity/boards.h"
#include "identity/properties.h"

#define MODULE_IDENTITY "/proc/device-tree/module-identity"
#define USER_DEFINED_A DDAL_BOARD_IDENTITY "/user-defined-a"

namespace {

constexpr const char *kBandClass = DDAL_BOARD_IDENTITY "/band-class";
constexpr const char *kSubBand = DDAL_BOARD_IDENTITY "/sub-band";
constexpr const char *kBackhaul1Type = USER_DEFINED_A "/backhaul-1-type";
constexpr const char *kWifiSupport = USER_DEFINED_A "/wifisupport";
constexpr const char *kIsti = "/proc/device-tree/life-time-data/isti";
constexpr const char *kDspMaskCount = "/proc/device-tree/dsp/dsp-mask-count";
constexpr const char *kDspMask = "/proc/device-tree/dsp/dsp-mask";

constexpr uint32_t kFixedBackhaul1Type = 0x2000;
constexpr uint32_t kByteMask = 0xFF;
constexpr uint32_t kMaskBits = 32;

// Item of the system-information store; the second key is unused.
constexpr uint32_t kBoardCategory = 0;
constexpr uint32_t kResetLoopCounter1 = 15;

int read_shifted(uint32_t *value, const char *path, unsigned shift)
{
    const int result = ddal_common_read_u32val(value, path);
    if (result == 0)
        *value <<= shift;
    return result;
}

int read_sized_string(size_t *size, char *buf, const char *path)
{
    const int result = ddal_kvb_common_read_string_and_size(size, buf, path);
    return result < 0 ? result : 0;
}

} // namespace

// Each row defines one operation: its name and the property that it reads.
#define BOARD_TEXT(operation, path)                                                                                    \
    int operation(uint32_t, size_t size, char *buf)                                                                    \
    {                                                                                                                  \
        return ddal_common_read_string(size, buf, path);                                                               \
    }
#define TEXT(operation, path)                                                                                          \
    int operation(size_t size, char *buf)                                                                              \
    {                                                                                                                  \
        return ddal_common_read_string(size, buf, path);                                                               \
    }
#define SIZED_TEXT(operation, path)                                                                                    \
    int operation(size_t *size, char *buf)                                                                             \
    {                                                                                                                  \
        return read_sized_string(size, buf, path);                                                                     \
    }
#define BOARD_CELL(operation, path)                                                                                    \
    int operation(uint32_t, uint32_t *value)                                                                           \
    {                                                                                                                  \
        return ddal_common_read_u32val(value, path);                                                                   \
    }
#define CELL(operation, path)                                                                                          \
    int operation(uint32_t *value)                                                                                     \
    {                                                                                                                  \
        return ddal_common_read_u32val(value, path);                                                                   \
    }
#define SHIFTED_CELL(operation, path, shift)                                                                           \
    int operation(uint32_t *value)                                                                                     \
    {                                                                                                                  \
        return read_shifted(value, path, shift);                                                                       \
    }

// clang-format off
BOARD_TEXT(ddal_devicetree_get_production_code,          DDAL_BOARD_IDENTITY "/product-code")
BOARD_TEXT(ddal_devicetree_get_serial_number,            DDAL_BOARD_IDENTITY "/serial-number")
BOARD_TEXT(ddal_devicetree_get_unit_id,                  DDAL_BOARD_IDENTITY "/unit-id")
BOARD_TEXT(ddal_devicetree_get_test_time_stamp,          DDAL_BOARD_IDENTITY "/test-time-stamp")
BOARD_TEXT(ddal_devicetree_get_manufacturer,             DDAL_BOARD_IDENTITY "/manufacturer")
BOARD_TEXT(ddal_devicetree_get_hwcompat,                 "/proc/device-tree/compatible")
TEXT(ddal_devicetree_get_module_production_code,         MODULE_IDENTITY "/product-code")
TEXT(ddal_devicetree_get_module_serial_number,           MODULE_IDENTITY "/serial-number")
TEXT(ddal_devicetree_get_module_unit_id,                 MODULE_IDENTITY "/unit-id")
TEXT(ddal_devicetree_get_module_test_time_stamp,         MODULE_IDENTITY "/test-time-stamp")
TEXT(ddal_devicetree_get_board_description,              DDAL_BOARD_IDENTITY "/board-description")
TEXT(ddal_devicetree_get_osc_calibration_date,           DDAL_BOARD_IDENTITY "/oscillator/calibration-date")
TEXT(ddal_devicetree_get_die_id,                         DDAL_BOARD_IDENTITY "/die-id")
TEXT(ddal_devicetree_get_die_id_quality,                 DDAL_BOARD_IDENTITY "/die-id-quality")
SIZED_TEXT(ddal_devicetree_sysinfo_get_fpga_type,        DDAL_BOARD_IDENTITY "/fpga-type")
SIZED_TEXT(ddal_devicetree_sysinfo_get_rfic_type,        DDAL_BOARD_IDENTITY "/rfic-type")
BOARD_CELL(ddal_devicetree_get_hw_sw_id,                 DDAL_BOARD_IDENTITY "/hw-sw-id")
BOARD_CELL(ddal_devicetree_get_numcores,                 "/proc/device-tree/cpus/numcores")
BOARD_CELL(ddal_devicetree_get_isti,                     kIsti)
CELL(ddal_devicetree_get_xcvr_hw_capability,             DDAL_BOARD_IDENTITY "/xcvr-hw-capability")
CELL(ddal_devicetree_get_hal_major,                      DDAL_BOARD_IDENTITY "/hal/hal-major")
CELL(ddal_devicetree_get_hal_intermediate,               DDAL_BOARD_IDENTITY "/hal/hal-intermediate")
CELL(ddal_devicetree_get_hal_minor,                      DDAL_BOARD_IDENTITY "/hal/hal-minor")
CELL(ddal_devicetree_get_osc_calibration_data,           DDAL_BOARD_IDENTITY "/oscillator/calibration-data")
CELL(ddal_devicetree_get_osc_oscillator_type,            DDAL_BOARD_IDENTITY "/oscillator/oscillator-type")
SHIFTED_CELL(ddal_devicetree_get_user_defined_a_backhaul_2_type, USER_DEFINED_A "/backhaul-2-type", 12)
SHIFTED_CELL(ddal_devicetree_get_user_defined_a_backhaul_3_type, USER_DEFINED_A "/backhaul-3-type", 4) // kept: 4, not 12
SHIFTED_CELL(ddal_devicetree_get_user_defined_a_pse_status,      USER_DEFINED_A "/pse-status",      12)
SHIFTED_CELL(ddal_devicetree_get_user_defined_a_pse_config,      USER_DEFINED_A "/pse-config",      12)
SHIFTED_CELL(ddal_devicetree_get_user_defined_a_bt_status,       USER_DEFINED_A "/bt-status",       12)
SHIFTED_CELL(ddal_devicetree_get_user_defined_a_bt_config,       USER_DEFINED_A "/bt-config",       12)
// clang-format on

int ddal_devicetree_get_user_defined_a_backhaul_1_type(uint32_t *value)
{
    if (ddal::identity::this_board().backhaul_1_is_fixed) {
        *value = kFixedBackhaul1Type;
        return 0;
    }
    return read_shifted(value, kBackhaul1Type, 12);
}

int ddal_devicetree_get_user_defined_a_wifi_support(uint32_t *value)
{
    return ddal_common_read_u32val(value, kWifiSupport) == 0 ? 0 : DDAL_ERR_WIFI_SUPPORT;
}

int ddal_devicetree_get_band_class(uint32_t *value)
{
    const int result = ddal_common_read_u32val(value, kBandClass);
    // Older trees hold the band class alone; newer ones keep the sub-band in the low byte.
    if (result == 0 && *value > kByteMask)
        *value = (*value >> 8) & kByteMask;
    return result;
}

int ddal_devicetree_get_sub_band(uint32_t *value)
{
    uint32_t band_class = 0;
    const int result = ddal_common_read_u32val(&band_class, kBandClass);
    if (result != 0)
        return log_error(result, "failed to retrieve band-class during retrieval of sub-band\n");
    if (band_class <= kByteMask)
        return ddal_common_read_u32val(value, kSubBand);
    *value = band_class & kByteMask;
    return 0;
}

int ddal_devicetree_get_dsp_mask(uint32_t, uint32_t *mask, uint32_t *count)
{
    uint32_t n = 0;
    int result = ddal_common_read_u32val(&n, kDspMaskCount);
    if (result != 0)
        return log_error(result, "Unknown error\n");

    // calloc refuses a count whose size in bytes overflows. Allocates at least one cell, because calloc(0) may return
    // NULL.
    const std::unique_ptr<uint32_t, decltype(&free)> cells{
        static_cast<uint32_t *>(calloc(n != 0 ? n : 1, sizeof(uint32_t))), free};
    if (!cells)
        return -ENOMEM;
    result = ddal_common_read_u32val_array(n, cells.get(), kDspMask);
    if (result != 0)
        return log_error(result, "Unknown error\n");

    *mask = 0;
    for (uint32_t i = 0; i < n && i < kMaskBits; i++)
        if (cells.get()[i] != 0)
            *mask |= UINT32_C(1) << i;
    if (count)
        *count = n;
    return 0;
}

int ddal_devicetree_set_isti(uint32_t value)
{
    return ddal_common_write_u32val(&value, kIsti);
}

int ddal_devicetree_get_reset_loop_counter_1(uint32_t *value)
{
    uint64_t item = 0;
    if (ddal_sysinfo_get_uint(kBoardCategory, kResetLoopCounter1, 0, &item) != 0)
        return log_error(DDAL_ERR_FAILURE, "Error reading reset_loop_counter_1\n");
    *value = static_cast<uint32_t>(item);
    return 0;
}

int ddal_devicetree_set_reset_loop_counter_1(uint32_t value)
{
    if (ddal_sysinfo_set_uint(kBoardCategory, kResetLoopCounter1, 0, value) != 0)
        return log_error(DDAL_ERR_FAILURE, "Error writing reset_loop_counter_1\n");
    return 0;
}

int ddal_devicetree_write_to_flash(void)
{
    return ddal_sysinfo_update_devicetree_to_flash();
}
