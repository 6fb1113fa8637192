// Interface of the FPGA kernel drivers: nodes, attributes, requests and records, the same on every target.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ddal::logic {

// Main FPGA: register address = file offset, 32-bit little-endian registers.
inline constexpr const char *kFpgaNode = "/dev/fpga_usr";
inline constexpr uint32_t kFpgaRegisterAlignment = 4;

// Register requests of the main and of the RF FPGAs.
inline constexpr uint32_t kFpgaRegRead = 0x100;
inline constexpr uint32_t kFpgaRegWrite = 0x101;
inline constexpr uint32_t kFpgaRegMaskedWrite = 0x102; // register = (register & ~mask) | (value & mask), atomic

struct FpgaRegRequest {
    uint32_t reserved; // 0
    uint32_t address;
    uint32_t mask;
    uint32_t value;
};
static_assert(sizeof(FpgaRegRequest) == 16 && offsetof(FpgaRegRequest, address) == 4 &&
              offsetof(FpgaRegRequest, mask) == 8 && offsetof(FpgaRegRequest, value) == 12);

// Registers of the main FPGA.
inline constexpr uint32_t kFpgaVersion = 0x00000000;
inline constexpr uint32_t kFpgaRp3AlarmMask = 0x00140020;

// RF power meter: a record channel and two decimal settings.
inline constexpr const char *kPowerMeterNode = "/dev/fpga_rf_pwr";
inline constexpr const char *kPowerMeterLoopCount = "/sys/class/fpga_rf_pwr/fpga_rf_pwr/loop_cnt";
inline constexpr const char *kPowerMeterAccumRange = "/sys/class/fpga_rf_pwr/fpga_rf_pwr/accum_range";

struct PowerMeterRecord {
    uint32_t word[9]; // little-endian
};
static_assert(sizeof(PowerMeterRecord) == 36);

// The first word of the record holds three fields; the other bits have no meaning.
struct PowerMeterField {
    unsigned shift;
    uint32_t mask;
};
inline constexpr PowerMeterField kPowerMeterFields[] = {{0, 0x1F}, {8, 0x3FF}, {20, 0x3FF}};

} // namespace ddal::logic
