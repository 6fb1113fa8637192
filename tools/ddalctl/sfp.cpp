// ddalctl sfp: modules in the SFP cages.
#include <ddal/sfp.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/report.h"
#include "ddalctl/sfp_names.h"
#include "ddalctl/sfp_thresholds.h"
#include "ddalctl/sfp_watch.h"

namespace ddalctl {

namespace {

constexpr Choice kMemories[] = {{"id", DDAL_SFP_MEMORY_ID}, {"diag", DDAL_SFP_MEMORY_DIAGNOSTICS}};
constexpr Choice kControls[] = {{"tx-disable", DDAL_SFP_CTRL_TX_DISABLE}, {"rate-select", DDAL_SFP_CTRL_RATE_SELECT}};
constexpr Choice kOnOff[] = {{"off", 0}, {"on", 1}};
constexpr Choice kLowHigh[] = {{"low", DDAL_SFP_RATE_SELECT_LOW}, {"high", DDAL_SFP_RATE_SELECT_HIGH}};
constexpr uint32_t kBytesPerRow = 16;
constexpr uint32_t kMemorySize = 256;

void require_module(uint32_t cage)
{
    uint32_t present = 0;
    require(DDAL(ddal_sfp_status_get)(cage, DDAL_SFP_STATUS_PRESENCE, &present));
    if (!present)
        throw Failure(-ENXIO, kNothingThere, "cage " + std::to_string(cage - DDAL_SFP_1 + 1) + " is empty");
}

// Adds a text of the module without its padding.
template <size_t Size, typename Getter>
void add_text(Report &report, const char *name, Getter getter, uint32_t cage)
{
    char text[Size] = {};
    require(getter(cage, text));
    std::string trimmed = text;
    trimmed.erase(trimmed.find_last_not_of(' ') + 1);
    report.add(name, trimmed, trimmed.empty() ? "-" : trimmed);
}

template <typename Getter>
uint32_t number_of(Getter getter, uint32_t cage)
{
    uint32_t value = 0;
    require(getter(cage, &value));
    return value;
}

void add_compliance(Report &report, uint32_t cage)
{
    uint8_t codes[8];
    uint32_t bits[64];
    uint32_t count = 0;
    require(DDAL(ddal_sfp_compliance_code_get)(cage, codes));
    require(DDAL(ddal_sfp_interpret_compliance_codes)(codes, bits, 64, &count));
    std::vector<std::string> names;
    std::string text;
    for (uint32_t i = 0; i < count; i++) {
        names.push_back(sfp_compliance_name(bits[i]));
        text += (text.empty() ? "" : ", ") + names.back();
    }
    report.add("compliance", names, text.empty() ? "-" : text);
}

void add_bit_rate(Report &report, uint32_t cage)
{
    const uint32_t nominal = number_of(DDAL(ddal_sfp_bitrate_get), cage) * 100;
    const uint32_t above = number_of(DDAL(ddal_sfp_bitrate_upper_rate_limit_get), cage);
    const uint32_t below = number_of(DDAL(ddal_sfp_bitrate_lower_rate_limit_get), cage);
    std::string text = std::to_string(nominal) + " MBd";
    if (above || below)
        text += " (+" + std::to_string(above) + " % / -" + std::to_string(below) + " %)";
    report.add("bit-rate", uint64_t{nominal}, text);
}

void add_identity(Report &report, uint32_t cage)
{
    add_text<17>(report, "vendor", DDAL(ddal_sfp_vendor_name_get), cage);
    add_text<17>(report, "part-number", DDAL(ddal_sfp_part_number_get), cage);
    add_text<5>(report, "revision", DDAL(ddal_sfp_revision_get), cage);
    add_text<17>(report, "serial-number", DDAL(ddal_sfp_serial_number_get), cage);
    add_text<9>(report, "date-code", DDAL(ddal_sfp_date_code_get), cage);
    report.add("connector", sfp_connector_name(number_of(DDAL(ddal_sfp_connector_value_get), cage)));
    add_compliance(report, cage);
    add_bit_rate(report, cage);
    const uint32_t wavelength = number_of(DDAL(ddal_sfp_wavelength_get), cage);
    report.add("wavelength", uint64_t{wavelength}, std::to_string(wavelength) + " nm");
}

// An alarm or a warning: "high", "low" or none.
void add_flag(Report &row, const char *name, const char *flag)
{
    if (flag)
        row.add(name, flag);
    else
        row.add_missing(name);
}

void add_thresholds(Report &report, const std::vector<SfpMeasurement> &measured,
                    const std::vector<SfpThresholds> &thresholds)
{
    for (size_t i = 0; i < measured.size(); i++) {
        Report &row = report.row("thresholds");
        row.add("quantity", measured[i].name);
        const auto add = [&](const char *name, double value) {
            row.add(name, value, SfpMeasurement{"", measured[i].unit, value, nullptr, nullptr}.value_text());
        };
        add("low-alarm", thresholds[i].low_alarm);
        add("low-warning", thresholds[i].low_warning);
        add("high-warning", thresholds[i].high_warning);
        add("high-alarm", thresholds[i].high_alarm);
        add("margin", thresholds[i].margin(measured[i].value));
        row.add("unit", measured[i].unit);
    }
}

void add_diagnostics(Report &report, uint32_t cage)
{
    const SfpCalibration calibration = sfp_calibration(cage);
    if (calibration == SfpCalibration::none) {
        report.add("diagnostics-interface", nullptr, "none");
        return;
    }
    const uint32_t revision = number_of(DDAL(ddal_sfp_sff_8472_compliance_code_get), cage);
    report.add("diagnostics-interface", "SFF-8472 revision " + sfp_revision_name(revision) + ", " +
                                            (calibration == SfpCalibration::internal ? "internally" : "externally") +
                                            " calibrated");
    const std::vector<SfpMeasurement> all = sfp_measure(cage);
    for (const SfpMeasurement &measured : all) {
        Report &row = report.row("diagnostics");
        row.add("quantity", measured.name);
        row.add("value", measured.value, measured.value_text());
        row.add("unit", measured.unit, measured.unit_text());
        add_flag(row, "alarm", measured.alarm);
        add_flag(row, "warning", measured.warning);
    }
    add_thresholds(report, all, sfp_thresholds(cage, calibration));
}

void add_controls(Report &report, uint32_t cage)
{
    uint32_t value = 0;
    require(DDAL(ddal_sfp_ctrl_get)(cage, DDAL_SFP_CTRL_TX_DISABLE, &value));
    report.add("tx-disable", value != 0, value ? "on" : "off");
    require(DDAL(ddal_sfp_ctrl_get)(cage, DDAL_SFP_CTRL_RATE_SELECT, &value));
    report.add("rate-select", value == DDAL_SFP_RATE_SELECT_HIGH ? "high" : "low");
}

void add_status(Report &report, uint32_t cage)
{
    for (const SfpLine &line : kSfpLines) {
        uint32_t value = 0;
        require(DDAL(ddal_sfp_status_get)(cage, line.status, &value));
        report.add(line.name, value != 0, value ? "yes" : "no");
    }
}

void show(const Arguments &arguments, Report &report)
{
    const uint32_t cage = arguments.choice("CAGE", kSfpCageNames);
    require_module(cage);
    add_identity(report, cage);
    add_controls(report, cage);
    add_status(report, cage);
    add_diagnostics(report, cage);
}

void status(const Arguments &arguments, Report &report)
{
    const uint32_t cage = arguments.choice("CAGE", kSfpCageNames);
    add_status(report, cage);
    add_controls(report, cage);
}

void read(const Arguments &arguments, Report &report)
{
    const uint32_t cage = arguments.choice("CAGE", kSfpCageNames);
    const uint32_t memory = arguments.choice("MEMORY", kMemories);
    const uint32_t offset = arguments.number_or("OFFSET", 0);
    const uint32_t length = arguments.number_or("LENGTH", offset < 128 ? 128 - offset : kMemorySize - offset);
    if (arguments.given("OFFSET"))
        arguments.start("OFFSET", length, kMemorySize - 1);
    uint8_t bytes[kMemorySize];
    require(DDAL(ddal_sfp_memory_read)(cage, memory, offset, bytes, length));
    for (uint32_t at = 0; at < length; at += kBytesPerRow) {
        std::string digits;
        for (uint32_t i = at; i < length && i < at + kBytesPerRow; i++)
            digits += (digits.empty() ? "" : " ") + hex(bytes[i], 2).substr(2);
        Report &row = report.row("bytes");
        row.add("offset", offset + at);
        std::string plain = digits;
        std::erase(plain, ' ');
        row.add("bytes", plain, digits);
    }
}

void write(const Arguments &arguments, Report &)
{
    const uint32_t cage = arguments.choice("CAGE", kSfpCageNames);
    const std::vector<uint8_t> bytes = arguments.bytes("BYTES");
    const uint32_t offset = arguments.start("OFFSET", bytes.size(), kMemorySize - 1);
    require(DDAL(ddal_sfp_memory_write)(cage, DDAL_SFP_MEMORY_DIAGNOSTICS, offset, bytes.data(),
                                        static_cast<uint32_t>(bytes.size())));
}

void set(const Arguments &arguments, Report &)
{
    const uint32_t cage = arguments.choice("CAGE", kSfpCageNames);
    const uint32_t control = arguments.choice("CONTROL", kControls);
    const uint32_t value =
        control == DDAL_SFP_CTRL_TX_DISABLE ? arguments.choice("VALUE", kOnOff) : arguments.choice("VALUE", kLowHigh);
    require(DDAL(ddal_sfp_ctrl_set)(cage, control, value));
}

void watch(const Arguments &arguments, Report &report)
{
    const uint32_t cage = arguments.choice("CAGE", kSfpCageNames);
    sfp_watch(cage, arguments.number_or("--interval", 1000), arguments, report);
}

// The words for the control before them: CAGE CONTROL VALUE.
std::vector<std::string> values_of_control(const std::vector<std::string> &words)
{
    return words.size() > 1 && words[1] == kControls[0].word ? words_of(kOnOff) : words_of(kLowHigh);
}

} // namespace

Family sfp_family()
{
    const Argument cage = one_of<kSfpCageNames>("CAGE", "1 or 2");
    return {"sfp",
            "modules in the SFP cages",
            {
                {"show", "show identity, diagnostics, control and status lines of the module", {cage}, show},
                {"watch",
                 "follow status lines and diagnostics, until interrupted",
                 {cage,
                  {"--interval", Kind::number, "milliseconds between measurements (1000)", true, 3'600'000, 10},
                  {"--count", Kind::number, "stop after COUNT lines", true, UINT32_MAX, 1},
                  {"--plot", Kind::flag, "draw power and temperature in the terminal; print lines elsewhere"},
                  file("--svg", "write a picture of power and temperature, with the thresholds, at the end"),
                  kTimeout},
                 watch},
                {"status", "show the control and status lines", {cage}, status},
                {"set",
                 "drive a control line",
                 {cage, one_of<kControls>("CONTROL", "tx-disable or rate-select"),
                  text_of("VALUE", "on or off; low or high", values_of_control)},
                 set},
                {"read",
                 "read a memory of the module",
                 {cage,
                  one_of<kMemories>("MEMORY", "id (A0h) or diag (A2h)"),
                  {"OFFSET", Kind::number, "first byte", true, kMemorySize - 1},
                  {"LENGTH", Kind::number, "number of bytes", true, kMemorySize, 1}},
                 read},
                {"write",
                 "write the diagnostics memory of the module",
                 {cage,
                  {"OFFSET", Kind::number, "first byte", false, kMemorySize - 1},
                  {"BYTES", Kind::bytes, "pairs of hexadecimal digits to write"}},
                 write},
            }};
}

} // namespace ddalctl
