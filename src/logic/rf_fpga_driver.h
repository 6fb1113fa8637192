// Interface of the RF FPGA drivers beside the register requests of fpga_driver.h: nodes, attributes, requests and
// records.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ddal::logic {

// Device 0 has 32-bit registers, and the register address is the file offset. Devices 1 to 3 sit behind SPI and have
// 8-bit registers, accessed by requests.
inline constexpr const char *kRfFpgaNodeFormat = "/dev/fpga_rf%u";
inline constexpr const char *kRfFpgaNode0 = "/dev/fpga_rf0";
inline constexpr uint32_t kRfFpgaLastDevice = 3;
inline constexpr uint32_t kSpiRegisterMax = 255;
inline constexpr uint32_t kSpiRegisterBits = 8;

// Slow measurement report. The request waits for the next report and returns the index of the buffer that holds it.
inline constexpr const char *kSlowMeasNode = "/dev/fpga_smr";
inline constexpr uint32_t kSlowMeasWait = 0x8004E550;
inline constexpr uint32_t kSlowMeasPeriod = 0x00140A00; // register of the main FPGA, in units of 100 ms
inline constexpr uint32_t kSlowMeasPeriodUnit = 100;
inline constexpr uint32_t kSlowMeasPeriodMax = 1000;
inline constexpr size_t kSlowMeasBlock = 32;
inline constexpr uint32_t kSlowMeasBuffers = 2;

// Addresses of a report's two blocks in the main FPGA, by buffer index.
inline constexpr uint32_t kSlowMeasFirstBlock[kSlowMeasBuffers] = {0x000C2040, 0x000C2060};
inline constexpr uint32_t kSlowMeasSecondBlock[kSlowMeasBuffers] = {0x00181940, 0x00181960};
inline constexpr uint32_t kSlowMeasSecondBlockC5[kSlowMeasBuffers] = {0x00182040, 0x00182060};

// A main FPGA of type C5 has all these bits in its version word.
inline constexpr uint32_t kC5Version = 0xC5000000;

// Licensed-assisted access.
inline constexpr const char *kLaaNode = "/dev/fpga_laa"; // records of kLaaRecordSize bytes
inline constexpr size_t kLaaRecordSize = 52;
inline constexpr const char *kLaaPrescanNodeFormat = "/dev/fpga_laa_prescan%u"; // one byte per event
inline constexpr const char *kLaaDfsNodeFormat = "/dev/fpga_laa_dfs%u";         // one word per event
inline constexpr const char *kLaaSasNodeFormat = "/dev/fpga_laa_sas%u";         // priority input for each event
inline constexpr const char *kLaaSasAnyNode = "/dev/fpga_laa_sas_any";
inline constexpr size_t kNodeNameSize = 32; // fits the longest name above with the largest index

// Attributes that notify (priority input) when their alarm changes.
inline constexpr const char *kRp3AlarmAttribute = "/sys/class/fpga_usr/fpga_usr/rp3_alarm";
inline constexpr const char *kRefabAlarmAttribute = "/sys/class/fpga_usr/fpga_usr/refab_alarm";
inline constexpr uint32_t kRp3AlarmEnable = 0x01000000; // bit of the RP3 alarm mask

} // namespace ddal::logic
