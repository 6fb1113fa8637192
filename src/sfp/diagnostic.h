// Calibration of an SFP module's diagnostics.
#pragma once

#include <cstdint>

namespace ddal::sfp {

// Stores 1 when the module reports calibrated values, 0 when its raw values need its calibration constants.
int internal_calibration_get(uint32_t sfpId, int *internal);

} // namespace ddal::sfp
