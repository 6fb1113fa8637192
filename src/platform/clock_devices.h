// Devices around the board's clocks: pulse per second, jitter cleaner, uptime daemon.
#pragma once

#include <cstdint>

namespace ddal::platform {

// The FPGA's pulse per second, a device of the kernel's PPS interface.
inline constexpr const char *kPpsNode = "/dev/pps/fpga-pps";

// The jitter-cleaner PLL: a status attribute (one signed decimal number) and an SPI register of 24 bits.
inline constexpr const char *kJitterCleanerStatus = "/sys/class/cpld-usr/cpld-usr/jcstat";
inline constexpr const char *kJitterCleanerNode = "/dev/spidev2.1";

// The uptime daemon: a sequenced-packet socket in the abstract name space. The name follows a NUL byte and is padded
// with NUL bytes to the full address size. The daemon sends one 64-bit count of milliseconds to each client that
// connects.
inline constexpr char kUptimeSocketName[] = "/uptimed";

} // namespace ddal::platform
