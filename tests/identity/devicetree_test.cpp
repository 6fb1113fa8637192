#include <cerrno>
#include <cstring>

#include <ddal/devicetree.h>
#include <ddal/unit.h>
#include <gtest/gtest.h>

#include "support/board.h"
#include "support/board_file.h"
#include "support/log_watch.h"
#include "support/property_rows.h"

using namespace testing_board;

namespace {

const std::string kTree = "/proc/device-tree/";
const std::string kIdentity = kTree + "board-identity/";
const std::string kUserDefined = kIdentity + "user-defined-a/";

struct TextGetter {
    int (*with_argument)(uint32_t, size_t, char *);
    int (*plain)(size_t, char *);
    std::string property;

    int operator()(size_t size, char *buf) const { return plain ? plain(size, buf) : with_argument(7, size, buf); }
};

const TextGetter kTexts[] = {
    {ddal_devicetree_get_production_code, nullptr, kIdentity + "product-code"},
    {ddal_devicetree_get_serial_number, nullptr, kIdentity + "serial-number"},
    {ddal_devicetree_get_unit_id, nullptr, kIdentity + "unit-id"},
    {ddal_devicetree_get_test_time_stamp, nullptr, kIdentity + "test-time-stamp"},
    {ddal_devicetree_get_manufacturer, nullptr, kIdentity + "manufacturer"},
    {ddal_devicetree_get_hwcompat, nullptr, kTree + "compatible"},
    {nullptr, ddal_devicetree_get_module_production_code, kTree + "module-identity/product-code"},
    {nullptr, ddal_devicetree_get_module_serial_number, kTree + "module-identity/serial-number"},
    {nullptr, ddal_devicetree_get_module_unit_id, kTree + "module-identity/unit-id"},
    {nullptr, ddal_devicetree_get_module_test_time_stamp, kTree + "module-identity/test-time-stamp"},
    {nullptr, ddal_devicetree_get_board_description, kIdentity + "board-description"},
    {nullptr, ddal_devicetree_get_osc_calibration_date, kIdentity + "oscillator/calibration-date"},
    {nullptr, ddal_devicetree_get_die_id, kIdentity + "die-id"},
    {nullptr, ddal_devicetree_get_die_id_quality, kIdentity + "die-id-quality"},
};

struct NumberGetter {
    int (*with_argument)(uint32_t, uint32_t *);
    int (*plain)(uint32_t *);
    std::string property;
    uint32_t cell;
    uint32_t value;

    int operator()(uint32_t *out) const { return plain ? plain(out) : with_argument(7, out); }
};

const NumberGetter kNumbers[] = {
    {ddal_devicetree_get_hw_sw_id, nullptr, kIdentity + "hw-sw-id", 0x01020304, 0x01020304},
    {ddal_devicetree_get_numcores, nullptr, kTree + "cpus/numcores", 4, 4},
    {ddal_devicetree_get_isti, nullptr, kTree + "life-time-data/isti", 0xFFFFFFFF, 0xFFFFFFFF},
    {nullptr, ddal_devicetree_get_xcvr_hw_capability, kIdentity + "xcvr-hw-capability", 11, 11},
    {nullptr, ddal_devicetree_get_hal_major, kIdentity + "hal/hal-major", 12, 12},
    {nullptr, ddal_devicetree_get_hal_intermediate, kIdentity + "hal/hal-intermediate", 13, 13},
    {nullptr, ddal_devicetree_get_hal_minor, kIdentity + "hal/hal-minor", 14, 14},
    {nullptr, ddal_devicetree_get_osc_calibration_data, kIdentity + "oscillator/calibration-data", 15, 15},
    {nullptr, ddal_devicetree_get_osc_oscillator_type, kIdentity + "oscillator/oscillator-type", 16, 16},
    {nullptr, ddal_devicetree_get_band_class, kIdentity + "band-class", 0x0312, 3},
    {nullptr, ddal_devicetree_get_band_class, kIdentity + "band-class", 0xABCD00FF, 0},
    {nullptr, ddal_devicetree_get_band_class, kIdentity + "band-class", 0xFF, 0xFF},
    {nullptr, ddal_devicetree_get_user_defined_a_backhaul_1_type, kUserDefined + "backhaul-1-type", 2, 0x2000},
    {nullptr, ddal_devicetree_get_user_defined_a_backhaul_2_type, kUserDefined + "backhaul-2-type", 3, 0x3000},
    {nullptr, ddal_devicetree_get_user_defined_a_backhaul_3_type, kUserDefined + "backhaul-3-type", 6, 0x60},
    {nullptr, ddal_devicetree_get_user_defined_a_pse_status, kUserDefined + "pse-status", 4, 0x4000},
    {nullptr, ddal_devicetree_get_user_defined_a_pse_config, kUserDefined + "pse-config", 5, 0x5000},
    {nullptr, ddal_devicetree_get_user_defined_a_bt_status, kUserDefined + "bt-status", 6, 0x6000},
    {nullptr, ddal_devicetree_get_user_defined_a_bt_config, kUserDefined + "bt-config", 0xFFFFFFFF, 0xFFFFF000},
    {nullptr, ddal_devicetree_get_user_defined_a_wifi_support, kUserDefined + "wifisupport", 1, 1},
};

TEST(DevicetreeText, IsReadFromItsPropertyAndCutToTheBuffer)
{
    for (const TextGetter &getter : kTexts) {
        SCOPED_TRACE(getter.property);
        const KeptFile kept(getter.property);
        put_file(getter.property, getter.property + std::string(1, '\0'));
        char text[100], cut[6];
        EXPECT_EQ(getter(sizeof text, text), 0);
        EXPECT_EQ(text, getter.property);
        EXPECT_EQ(getter(sizeof cut, cut), 0);
        EXPECT_EQ(cut, getter.property.substr(0, 5));
        EXPECT_EQ(getter(0, cut), -EINVAL);
    }
}

TEST(DevicetreeText, ReportsTheSizeThatDidNotFit)
{
    for (const auto &[getter, property] :
         {std::pair{&ddal_devicetree_sysinfo_get_fpga_type, kIdentity + "fpga-type"},
          std::pair{&ddal_devicetree_sysinfo_get_rfic_type, kIdentity + "rfic-type"}}) {
        SCOPED_TRACE(property);
        const KeptFile kept(property);
        put_file(property, "ABCDEF");
        char text[8];
        size_t size = 5;
        EXPECT_EQ(getter(&size, text), 0);
        EXPECT_STREQ(text, "ABCD");
        EXPECT_EQ(size, 2u);
        EXPECT_EQ(getter(&(size = 8), text), 0);
        EXPECT_STREQ(text, "ABCDEF");
        EXPECT_EQ(size, 0u);
        EXPECT_EQ(getter(&(size = 0), nullptr), 0);
        EXPECT_EQ(size, 7u);
    }
}

TEST(DevicetreeNumber, IsReadFromItsPropertyAndConverted)
{
    for (const NumberGetter &getter : kNumbers) {
        SCOPED_TRACE(getter.property);
        const KeptFile kept(getter.property);
        put_cells(getter.property, {getter.cell});
        uint32_t value = ~getter.value;
        EXPECT_EQ(getter(&value), 0);
        EXPECT_EQ(value, getter.value);

        put_cells(getter.property, {getter.cell, 0});
        EXPECT_EQ(getter(&value), getter.property.ends_with("wifisupport") ? -1022 : -ENODATA);
    }
}

TEST(DevicetreeNumber, SubBandSharesTheBandClassCellOrHasASeparateOne)
{
    const KeptFile band_class(kIdentity + "band-class"), sub_band(kIdentity + "sub-band");
    put_cells(kIdentity + "sub-band", {5});
    uint32_t value = 0;
    for (const auto &[cell, expected] : {std::pair{0x0312u, 0x12u}, {0x100u, 0u}, {0xFFu, 5u}, {3u, 5u}}) {
        put_cells(kIdentity + "band-class", {cell});
        EXPECT_EQ(ddal_devicetree_get_sub_band(&value), 0);
        EXPECT_EQ(value, expected) << cell;
    }
}

TEST(DevicetreeSweep, EveryGetterSurvivesEveryFailure)
{
    ddal_unit_get_board(); // read once per process
    for (const TextGetter &getter : kTexts) {
        Sweep sweep(getter.property, [&] {
            char text[100];
            return getter(sizeof text, text);
        });
        add_reading(sweep, getter.property).when("fread/end", changes_nothing()).run();
    }
    for (const NumberGetter &getter : kNumbers) {
        Sweep sweep(getter.property, [&] {
            uint32_t value;
            return getter(&value);
        });
        const bool one_code = getter.property.ends_with("wifisupport"); // for every failure
        add_reading(sweep, getter.property, {}, one_code ? std::optional{-1022L} : std::nullopt)
            .when("fread/short", fails(one_code ? -1022 : -ENODATA, {}))
            .when("fread/end", fails(one_code ? -1022 : -ENODATA, {}))
            .run();
    }
}

TEST(DevicetreeDspMask, HasABitForEveryCellThatIsSet)
{
    const std::string count_path = kTree + "dsp/dsp-mask-count", mask_path = kTree + "dsp/dsp-mask";
    const KeptFile kept_count(count_path), kept_mask(mask_path);
    uint32_t mask = 77, count = 77;

    put_cells(count_path, {4});
    put_cells(mask_path, {1, 0, 1, 0x80000000});
    EXPECT_EQ(ddal_devicetree_get_dsp_mask(0, &mask, &count), 0);
    EXPECT_EQ(mask, 0b1101u);
    EXPECT_EQ(count, 4u);

    put_cells(count_path, {40});
    put_file(mask_path, std::string(160, '\1'));
    EXPECT_EQ(ddal_devicetree_get_dsp_mask(0, &mask, nullptr), 0);
    EXPECT_EQ(mask, 0xFFFFFFFFu);

    put_cells(count_path, {0});
    put_file(mask_path, "");
    EXPECT_EQ(ddal_devicetree_get_dsp_mask(0, &mask, &count), 0);
    EXPECT_EQ(mask, 0u);
    EXPECT_EQ(count, 0u);

    put_cells(count_path, {41});
    put_file(mask_path, std::string(160, '\1'));
    LogWatch log;
    mask = count = 77;
    EXPECT_EQ(ddal_devicetree_get_dsp_mask(0, &mask, &count), -ENODATA);
    EXPECT_EQ(mask + count, 154u);
    EXPECT_EQ(log.take(), std::vector<std::string>{"3 ddal_devicetree_get_dsp_mask: Unknown error"});
}

TEST(DevicetreeSweep, DspMaskSubBandAndSettersSurviveEveryFailure)
{
    for (const auto &[name, operation, line] :
         {std::tuple<std::string, std::function<long()>, std::string>{"ddal_devicetree_get_dsp_mask",
                                                                      [] {
                                                                          uint32_t mask;
                                                                          return ddal_devicetree_get_dsp_mask(0, &mask,
                                                                                                              nullptr);
                                                                      },
                                                                      "3 ddal_devicetree_get_dsp_mask: Unknown error"},
          {"ddal_devicetree_get_sub_band", // needs no second property if the cell is shared
           [] {
               uint32_t value;
               return ddal_devicetree_get_sub_band(&value);
           },
           "3 ddal_devicetree_get_sub_band: failed to retrieve band-class during retrieval of sub-band"}}) {
        const KeptFile kept(kIdentity + "band-class");
        put_cells(kIdentity + "band-class", {0x0312});
        Sweep sweep(name, operation);
        add_reading(sweep, kTree + "*", {line})
            .when("fread/short", fails(-ENODATA, {line}))
            .when("fread/end", fails(-ENODATA, {line}))
            .run();
    }

    const std::string isti = kTree + "life-time-data/isti";
    Sweep set_isti("ddal_devicetree_set_isti", [] { return ddal_devicetree_set_isti(5); });
    add_writing(set_isti, isti, "ddal_common_write_u32val_array").run();
    EXPECT_EQ(file_content(isti), std::string("\0\0\0\5", 4));
}

TEST(ResetLoopCounter, IsAnItemOfTheStore)
{
    uint32_t value = 0;
    LogWatch log;
    EXPECT_EQ(ddal_devicetree_get_reset_loop_counter_1(&value), -1001); // the item is missing
    EXPECT_EQ(ddal_devicetree_set_reset_loop_counter_1(0xFFFFFFFF), 0);
    EXPECT_EQ(ddal_devicetree_get_reset_loop_counter_1(&value), 0);
    EXPECT_EQ(value, 0xFFFFFFFFu);
    EXPECT_EQ(log.take(), std::vector<std::string>{
                              "3 ddal_devicetree_get_reset_loop_counter_1: Error reading reset_loop_counter_1"});
}

TEST(ResetLoopCounter, HasOneCodeForEveryFailureOfTheStore)
{
    const std::string line_of_set = "3 ddal_devicetree_set_reset_loop_counter_1: Error writing reset_loop_counter_1";
    const std::string line_of_get = "3 ddal_devicetree_get_reset_loop_counter_1: Error reading reset_loop_counter_1";
    Sweep set("ddal_devicetree_set_reset_loop_counter_1", [] { return ddal_devicetree_set_reset_loop_counter_1(3); });
    Sweep get("ddal_devicetree_get_reset_loop_counter_1", [] {
        uint32_t value;
        return ddal_devicetree_get_reset_loop_counter_1(&value);
    });
    get.when("open/ENOENT", fails(-1001, {line_of_get})); // the store does not log a missing item
    set.when("fsync:/flash/config", changes_nothing());
    for (const char *call : {"open", "stat", "fstat", "flock/ENOLCK", "fdopen", "getline", "fwrite", "fflush", "fsync",
                             "fchmod", "fchown", "link", "rename"}) {
        set.when(call, fails(-1001, {"3 ddal_sysinfo_set_uint: *", line_of_set}));
        get.when(call, fails(-1001, {"3 ddal_sysinfo_get_uint: *", line_of_get}));
    }
    ddal_devicetree_set_reset_loop_counter_1(3);
    set.when("fclose", changes_nothing()).watch({"/flash/config"}).run();
    get.when("fclose", changes_nothing()).run();
}

} // namespace
