#include "ddalctl/sfp_thresholds.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include <ddal/sfp.h>

#include "ddalctl/failure.h"
#include "ddalctl/library.h"

namespace ddalctl {

namespace {

constexpr uint32_t kConstants = 96; // bytes of thresholds and calibration constants
constexpr uint32_t kBytesPerQuantity = 8;
constexpr uint32_t kRxPowerCoefficients = 56; // five, the highest power first

struct Quantity {
    bool is_signed;
    float unit;      // one step
    uint32_t slope;  // offsets of the calibration constants
    uint32_t offset; // both 0: a polynomial
};
constexpr Quantity kQuantities[] = {
    {true, 1.0f / 256, 84, 86}, {false, 0.0001f, 88, 90}, {false, 0.002f, 76, 78},
    {false, 0.0001f, 80, 82},   {false, 0.0001f, 0, 0},
};

class Memory {
public:
    explicit Memory(uint32_t cage)
    {
        require(DDAL(ddal_sfp_memory_read)(cage, DDAL_SFP_MEMORY_DIAGNOSTICS, 0, bytes_, sizeof bytes_));
    }

    uint16_t word(uint32_t offset) const { return static_cast<uint16_t>(bytes_[offset] << 8 | bytes_[offset + 1]); }
    float single(uint32_t offset) const
    {
        return std::bit_cast<float>(uint32_t{word(offset)} << 16 | uint32_t{word(offset + 2)});
    }

    // The threshold at an offset, calibrated as ddal_sfp_diagnostic_get() calibrates the quantity.
    double threshold(uint32_t at, const Quantity &quantity, SfpCalibration calibration) const
    {
        const uint16_t stored = word(at);
        const auto raw = static_cast<float>(quantity.is_signed ? static_cast<int16_t>(stored) : int32_t{stored});
        if (calibration == SfpCalibration::internal)
            return sfp_plain(raw * quantity.unit);
        return sfp_plain((quantity.slope ? linear(raw, quantity) : polynomial(raw)) * quantity.unit);
    }

private:
    float linear(float raw, const Quantity &quantity) const
    {
        const auto offset = static_cast<float>(static_cast<int16_t>(word(quantity.offset)));
        return raw * static_cast<float>(word(quantity.slope)) / 256 + offset / 256;
    }
    float polynomial(float raw) const
    {
        float sum = single(kRxPowerCoefficients);
        for (uint32_t at = 4; at < 20; at += 4)
            sum = std::fma(sum, raw, single(kRxPowerCoefficients + at));
        return sum;
    }

    uint8_t bytes_[kConstants];
};

} // namespace

double SfpThresholds::margin(double value) const
{
    return sfp_plain(static_cast<float>(std::min(high_alarm - value, value - low_alarm)));
}

std::vector<SfpThresholds> sfp_thresholds(uint32_t cage, SfpCalibration calibration)
{
    const Memory memory(cage);
    std::vector<SfpThresholds> thresholds;
    uint32_t at = 0;
    for (const Quantity &quantity : kQuantities) {
        const auto value = [&](uint32_t place) { return memory.threshold(at + 2 * place, quantity, calibration); };
        thresholds.push_back({value(0), value(1), value(2), value(3)});
        at += kBytesPerQuantity;
    }
    return thresholds;
}

} // namespace ddalctl
