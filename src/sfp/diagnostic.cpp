// Diagnostics of the SFP modules in engineering units.
#include "sfp/diagnostic.h"

#include <bit>
#include <cmath>
#include <endian.h>
#include <iterator>

#include <ddal/sfp.h>

#include "core/log.h"

namespace ddal::sfp {

namespace {

constexpr uint32_t kMonitoringType = 92; // offset in the identification memory
constexpr uint8_t kLegacyAddressing = 0x80;
constexpr uint8_t kDiagnosticsImplemented = 0x40;
constexpr uint8_t kInternallyCalibrated = 0x20;
constexpr uint8_t kExternallyCalibrated = 0x10;

} // namespace

int internal_calibration_get(uint32_t sfpId, int *internal)
{
    uint8_t type;
    const int result = ddal_sfp_memory_read(sfpId, DDAL_SFP_MEMORY_ID, kMonitoringType, &type, sizeof type);
    if (result != 0)
        return result;
    if ((type & kLegacyAddressing) || !(type & kDiagnosticsImplemented))
        return log_error(DDAL_ERR_FAILURE, "diagnostics not supported by transceiver for sfpId: 0x%x\n", sfpId);
    if (!(type & (kInternallyCalibrated | kExternallyCalibrated)))
        return log_error(DDAL_ERR_FAILURE, "both int and ext are zero, does not make sense for sfpId: 0x%x\n", sfpId);
    *internal = type & kInternallyCalibrated ? 1 : 0; // a module that claims both counts as internal
    return 0;
}

} // namespace ddal::sfp

namespace {

// Offsets in the diagnostics memory.
constexpr uint32_t kRxPowerCoefficients = 56; // five coefficients, the highest power first
constexpr uint32_t kAlarmFlags = 112;
constexpr uint32_t kWarningFlags = 116;

struct Quantity {
    uint32_t raw; // offset of the 16-bit measurement
    bool is_signed;
    float unit;      // one step of a calibrated measurement
    uint32_t slope;  // offsets of the constants of external calibration
    uint32_t offset; // 0: none, because the received power uses a polynomial
};

// By DDAL_SFP_DIAG_*.
constexpr Quantity kQuantities[] = {
    {96, true, 1.0f / 256, 84, 86}, {98, false, 0.0001f, 88, 90}, {100, false, 0.002f, 76, 78},
    {102, false, 0.0001f, 80, 82},  {104, false, 0.0001f, 0, 0},
};
static_assert(std::size(kQuantities) == DDAL_SFP_DIAG_RX_POWER + 1);

int read_word(uint32_t sfpId, uint32_t offset, uint16_t *word)
{
    uint16_t stored = 0;
    const int result = ddal_sfp_memory_read(sfpId, DDAL_SFP_MEMORY_DIAGNOSTICS, offset, &stored, sizeof stored);
    *word = be16toh(stored);
    return result;
}

int read_single(uint32_t sfpId, uint32_t offset, float *number)
{
    uint32_t stored = 0;
    const int result = ddal_sfp_memory_read(sfpId, DDAL_SFP_MEMORY_DIAGNOSTICS, offset, &stored, sizeof stored);
    *number = std::bit_cast<float>(be32toh(stored));
    return result;
}

int calibrate_linear(uint32_t sfpId, const Quantity &quantity, float raw, float *value)
{
    uint16_t slope, offset;
    int result = read_word(sfpId, quantity.slope, &slope);
    if (result != 0)
        return result;
    result = read_word(sfpId, quantity.offset, &offset);
    if (result != 0)
        return result;
    // kept: the offset is divided by 256 like the slope, though modules store it in units of the measurement.
    *value = (raw * static_cast<float>(slope) / 256 + static_cast<float>(static_cast<int16_t>(offset)) / 256) *
             quantity.unit;
    return 0;
}

int calibrate_rx_power(uint32_t sfpId, const Quantity &quantity, float raw, float *value)
{
    float coefficient[5];
    uint32_t offset = kRxPowerCoefficients;
    for (float &c : coefficient) {
        const int result = read_single(sfpId, offset, &c);
        if (result != 0)
            return result;
        offset += sizeof(uint32_t);
    }
    float sum = coefficient[0];
    for (size_t i = 1; i < std::size(coefficient); i++)
        sum = std::fma(sum, raw, coefficient[i]);
    *value = sum * quantity.unit;
    return 0;
}

int measure(uint32_t sfpId, const Quantity &quantity, bool internal, float *value)
{
    uint16_t word;
    const int result = read_word(sfpId, quantity.raw, &word);
    if (result != 0)
        return result;
    const auto raw = static_cast<float>(quantity.is_signed ? static_cast<int16_t>(word) : static_cast<int32_t>(word));
    if (internal) {
        *value = raw * quantity.unit;
        return 0;
    }
    return quantity.slope ? calibrate_linear(sfpId, quantity, raw, value)
                          : calibrate_rx_power(sfpId, quantity, raw, value);
}

} // namespace

int ddal_sfp_diagnostic_get(uint32_t sfpId, uint32_t diag, uint32_t *value)
{
    int internal;
    int result = ddal::sfp::internal_calibration_get(sfpId, &internal);
    if (result != 0)
        return result;
    if (diag >= std::size(kQuantities))
        return log_error(DDAL_ERR_FAILURE, "not supported for sfpId: 0x%x\n", sfpId);

    float measured;
    result = measure(sfpId, kQuantities[diag], internal != 0, &measured);
    if (result == 0)
        *value = std::bit_cast<uint32_t>(measured);
    return result;
}

int ddal_sfp_get_alarm_warning_flags(uint32_t sfpId, uint16_t *alarms, uint16_t *warnings)
{
    const int result = read_word(sfpId, kAlarmFlags, alarms);
    if (result != 0)
        return result;
    return read_word(sfpId, kWarningFlags, warnings);
}
