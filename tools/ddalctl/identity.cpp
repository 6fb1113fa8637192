#include "ddalctl/identity.h"

#include <cstdio>

#include <ddal/devicetree.h>

#include "ddalctl/failure.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr size_t kTextSize = 256;

#define TEXT_OF_BOARD(name) [](size_t size, char *text) { return DDAL(ddal_devicetree_get_##name)(0, size, text); }
#define TEXT(name) [](size_t size, char *text) { return DDAL(ddal_devicetree_get_##name)(size, text); }
#define TEXT_WITH_REPORT(name)                                                                                         \
    [](size_t size, char *text) { return DDAL(ddal_devicetree_sysinfo_get_##name)(&size, text); }
#define NUMBER_OF_BOARD(name) [](uint32_t *value) { return DDAL(ddal_devicetree_get_##name)(0, value); }
#define NUMBER(name) [](uint32_t *value) { return DDAL(ddal_devicetree_get_##name)(value); }

constexpr IdentityText kTexts[] = {
    {"product-code", TEXT_OF_BOARD(production_code)},
    {"serial-number", TEXT_OF_BOARD(serial_number)},
    {"unit-id", TEXT_OF_BOARD(unit_id)},
    {"test-time-stamp", TEXT_OF_BOARD(test_time_stamp)},
    {"manufacturer", TEXT_OF_BOARD(manufacturer)},
    {"description", TEXT(board_description)},
    {"compatible", TEXT_OF_BOARD(hwcompat)},
    {"module-product-code", TEXT(module_production_code)},
    {"module-serial-number", TEXT(module_serial_number)},
    {"module-unit-id", TEXT(module_unit_id)},
    {"module-test-time-stamp", TEXT(module_test_time_stamp)},
    {"die-id", TEXT(die_id)},
    {"die-id-quality", TEXT(die_id_quality)},
    {"oscillator-calibration-date", TEXT(osc_calibration_date)},
    {"fpga-type", TEXT_WITH_REPORT(fpga_type)},
    {"rfic-type", TEXT_WITH_REPORT(rfic_type)},
};

constexpr IdentityNumber kNumbers[] = {
    {"hw-sw-id", NUMBER_OF_BOARD(hw_sw_id)},
    {"cores", NUMBER_OF_BOARD(numcores)},
    {"dsp-mask", [](uint32_t *value) { return DDAL(ddal_devicetree_get_dsp_mask)(0, value, nullptr); }},
    {"isti", NUMBER_OF_BOARD(isti)},
    {"xcvr-hw-capability", NUMBER(xcvr_hw_capability)},
    {"hal-major", NUMBER(hal_major)},
    {"hal-intermediate", NUMBER(hal_intermediate)},
    {"hal-minor", NUMBER(hal_minor)},
    {"oscillator-calibration-data", NUMBER(osc_calibration_data)},
    {"oscillator-type", NUMBER(osc_oscillator_type)},
    {"band-class", NUMBER(band_class)},
    {"sub-band", NUMBER(sub_band)},
    {"backhaul-1-type", NUMBER(user_defined_a_backhaul_1_type)},
    {"backhaul-2-type", NUMBER(user_defined_a_backhaul_2_type)},
    {"backhaul-3-type", NUMBER(user_defined_a_backhaul_3_type)},
    {"pse-status", NUMBER(user_defined_a_pse_status)},
    {"pse-config", NUMBER(user_defined_a_pse_config)},
    {"bt-status", NUMBER(user_defined_a_bt_status)},
    {"bt-config", NUMBER(user_defined_a_bt_config)},
    {"wifi-support", NUMBER(user_defined_a_wifi_support)},
};

std::string mac_text(const uint8_t mac[6])
{
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

} // namespace

std::span<const IdentityText> identity_texts()
{
    return kTexts;
}

std::span<const IdentityNumber> identity_numbers()
{
    return kNumbers;
}

std::string text_of(const IdentityText &row)
{
    char text[kTextSize] = "";
    require(row.read(sizeof text, text));
    return text;
}

uint32_t number_of(const IdentityNumber &row)
{
    uint32_t value = 0;
    require(row.read(&value));
    return value;
}

std::string mac_address(const std::string &interface)
{
    uint8_t mac[6] = {};
    require(DDAL(ddal_devicetree_get_mac_addr)(0, interface.c_str(), mac));
    return mac_text(mac);
}

void add_if_there(Report &report, const IdentityText &row)
{
    char text[kTextSize] = "";
    if (row.read(sizeof text, text) == 0)
        report.add(row.name, std::string(text));
    else
        report.add_missing(row.name);
}

void add_if_there(Report &report, const IdentityNumber &row)
{
    uint32_t value = 0;
    if (row.read(&value) == 0)
        report.add(row.name, value);
    else
        report.add_missing(row.name);
}

void add_mac_if_there(Report &report, const std::string &interface)
{
    uint8_t mac[6] = {};
    if (DDAL(ddal_devicetree_get_mac_addr)(0, interface.c_str(), mac) == 0)
        report.add(interface, mac_text(mac));
    else
        report.add_missing(interface);
}

} // namespace ddalctl
