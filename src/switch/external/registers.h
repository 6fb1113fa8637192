// Registers of the 88E6320 and 88E6321.
#pragma once

#include <cstdint>

namespace ddal::external {

constexpr uint32_t kPorts = 7;
constexpr uint32_t kFirstPhy = 3; // ports with an internal PHY
constexpr uint32_t kLastPhy = 4;
constexpr uint16_t kProducts[] = {0x115, 0x310};

// The two registers of a switch that shares its bus
constexpr uint32_t kSharedCommand = 0;
constexpr uint32_t kSharedData = 1;
constexpr uint16_t kSharedRead = 0x9800; // then device << 5 | register
constexpr uint16_t kSharedWrite = 0x9400;

// Devices, and the bit of every command register that stays set while the command runs
constexpr uint32_t kPort0 = 0x10;
constexpr uint32_t kGlobal1 = 0x1B;
constexpr uint32_t kGlobal2 = 0x1C;
constexpr uint16_t kBusy = 0x8000;

// Port
constexpr uint32_t kPortStatus = 0x00;
constexpr uint16_t kPortPause = 0x8000;
constexpr uint16_t kPortPhyDetected = 0x1000;
constexpr uint16_t kPortLink = 0x0800;
constexpr uint16_t kPortFullDuplex = 0x0400;
constexpr uint16_t kPortMode = 0x000F;
constexpr uint32_t kPortIdentifier = 0x03; // product << 4 | revision
constexpr uint32_t kPortControl = 0x04;
constexpr uint16_t kPortState = 0x0003;
constexpr uint32_t kPortVlanMap = 0x06;
constexpr uint16_t kPortVlanPorts = 0x007F;
constexpr uint32_t kPortInDiscardsLow = 0x10;
constexpr uint32_t kPortInDiscardsHigh = 0x11;
constexpr uint32_t kPortInFiltered = 0x12;
constexpr uint32_t kPortOutFiltered = 0x13;

// Global 1: counters
constexpr uint32_t kStatsOperation = 0x1D;
constexpr uint32_t kStatsHigh = 0x1E;
constexpr uint32_t kStatsLow = 0x1F;
constexpr uint16_t kStatsCapture = 0xDC00; // both directions in the histogram; then (port + 1) << 5
constexpr uint16_t kStatsRead = 0xCC00;    // then the counter

// Global 2: registers of the PHYs
constexpr uint32_t kPhyCommand = 0x18;
constexpr uint32_t kPhyData = 0x19;
constexpr uint16_t kPhyRead = 0x9800; // then port << 5 | register
constexpr uint16_t kPhyWrite = 0x9400;

// PHY
constexpr uint32_t kControl = 0;
constexpr uint16_t kReset = 0x8000;
constexpr uint16_t kLoopback = 0x4000;
constexpr uint16_t kSpeed100 = 0x2000; // with kSpeed1000, the bits of a speed
constexpr uint16_t kAutoneg = 0x1000;
constexpr uint16_t kPowerDown = 0x0800;
constexpr uint16_t kRestart = 0x0200;
constexpr uint16_t kFullDuplex = 0x0100;
constexpr uint16_t kSpeed1000 = 0x0040;
constexpr uint16_t kSpeedBits = kSpeed100 | kSpeed1000;
constexpr uint32_t kStatus = 1;
constexpr uint16_t kLink = 0x0004; // keeps a loss until it is read
constexpr uint32_t kAdvertisement = 4;
constexpr uint16_t kPause = 0x0400;
constexpr uint16_t kAsymmetricPause = 0x0800;
constexpr uint32_t kGigabitControl = 9;
constexpr uint32_t kCopperControl = 16;
constexpr uint16_t kCrossover = 0x0060;
constexpr uint32_t kCopperStatus = 17;
constexpr uint16_t kStatusResolved = 0x0800;
constexpr uint16_t kStatusFullDuplex = 0x2000;
constexpr uint32_t kPageSelect = 22;
constexpr uint16_t kCopperPage = 0;
constexpr uint16_t kMacPage = 2;
constexpr uint32_t kMacControl = 21; // on kMacPage; kSpeedBits: the speed in loopback

} // namespace ddal::external
