// The thresholds that a module keeps in its diagnostics memory.
#pragma once

#include <cstdint>
#include <vector>

#include "ddalctl/sfp_watch.h"

namespace ddalctl {

struct SfpThresholds {
    double high_alarm;
    double low_alarm;
    double high_warning;
    double low_warning;

    // The distance of a value to the nearer alarm; negative beyond it.
    double margin(double value) const;
};

// Returns the thresholds in the order of sfp_measure(), calibrated like the measurements. The module has diagnostics.
std::vector<SfpThresholds> sfp_thresholds(uint32_t cage, SfpCalibration calibration);

} // namespace ddalctl
