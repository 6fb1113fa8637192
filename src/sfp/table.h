// Files of the SFP cages.
#pragma once

#include <cstddef>
#include <cstdint>

#include <ddal/sfp.h>

namespace ddal::sfp {

struct SfpCage {
    uint32_t id;
    const char *memory[2]; // by DDAL_SFP_MEMORY_*
    const char *lines;     // directory of the line attributes
};

inline constexpr size_t kSfpCageCount = 2;
inline constexpr uint32_t kSfpMemorySize = 256;

// Boards with sfp_on_i2c.
inline constexpr SfpCage kSfpCagesOnI2c[kSfpCageCount] = {
    {DDAL_SFP_1,
     {"/sys/bus/i2c/devices/2-0050/eeprom", "/sys/bus/i2c/devices/2-0051/eeprom"},
     "/sys/class/cpld-sfp-irq/cpld-sfp-irq-1"},
    {DDAL_SFP_2,
     {"/sys/bus/i2c/devices/1-0050/eeprom", "/sys/bus/i2c/devices/1-0051/eeprom"},
     "/sys/class/cpld-sfp-irq/cpld-sfp-irq-0"},
};

// All other boards: the CPLD gives access to the first cage's memories.
inline constexpr SfpCage kSfpCagesOnCpld[kSfpCageCount] = {
    {DDAL_SFP_1,
     {"/sys/class/cpld-usr/cpld-usr/bh_sfp_id", "/sys/class/cpld-usr/cpld-usr/bh_sfp_diag"},
     "/sys/class/cpld-sfp-irq/cpld-sfp-irq-0"},
    {DDAL_SFP_2,
     {"/sys/bus/i2c/devices/2-0050/eeprom", "/sys/bus/i2c/devices/2-0051/eeprom"},
     "/sys/class/fpga_sfp/fpga_sfp/device"},
};

inline constexpr const char *kSfpTxDisable = "tx_dis";
inline constexpr const char *kSfpRateSelect = "rate_select";
// By DDAL_SFP_STATUS_*.
inline constexpr const char *kSfpStatusLines[] = {"tx_fault", "rx_los", "presence"};

} // namespace ddal::sfp
