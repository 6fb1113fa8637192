// The changing part of an SFP module: measurements and status lines.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <ddal/sfp.h>

#include "ddalctl/command.h"
#include "ddalctl/interrupt.h"

namespace ddalctl {

inline constexpr Choice kSfpCageNames[] = {{"1", DDAL_SFP_1}, {"2", DDAL_SFP_2}};

struct SfpLine {
    uint32_t status;
    const char *name;
};
inline constexpr SfpLine kSfpLines[] = {
    {DDAL_SFP_STATUS_PRESENCE, "present"},
    {DDAL_SFP_STATUS_RX_LOS, "rx-los"},
    {DDAL_SFP_STATUS_TX_FAULT, "tx-fault"},
};

enum class SfpCalibration { none, internal, external };

// Reads the module's memory, so that a module without diagnostics is not a failure.
SfpCalibration sfp_calibration(uint32_t cage);

// Converts a float to the double with the same seven decimal digits: 3.237, not 3.2369999885559082.
double sfp_plain(float value);

struct SfpMeasurement {
    const char *name;
    const char *unit;
    double value;
    const char *alarm; // "high" or "low"; NULL: none
    const char *warning;

    std::string value_text() const;
    std::string unit_text() const; // optical power in dBm as well
};

std::vector<SfpMeasurement> sfp_measure(uint32_t cage);

// Reports each change of a status line as it happens, and the measurements at every interval.
void sfp_watch(uint32_t cage, uint32_t interval_ms, const Arguments &arguments, Report &report);

} // namespace ddalctl
