// The registers of a snapshot of the radio data path, in the order of its lines.
#pragma once

#include <cstdint>

namespace ddal::logic {

struct LabelledRegister {
    uint32_t address;
    const char *label;
};

// First register of the snapshot. If it cannot be read, no snapshot is made.
inline constexpr LabelledRegister kRp1SfnStatus = {0x00140900, "RP1 and SFN status"};
inline constexpr uint32_t kRp1SfnStatusGood = 0x7; // all of these bits are set on a healthy link

// Main FPGA.
inline constexpr LabelledRegister kDataPathCounters[] = {
    {0x001402A8, "UL Tick adj"},
    {0x00140890, "number of frames with 140 symbols"},
    {0x00140894, "number of frames < 140 symbols"},
    {0x00140898, "number of frames > 140 symbols"},
    {0x00140864, "number of RP3 messages received from K2 for antenna main"},
    {0x00140868, "number of RP3 messages received from K2 for antenna diversity"},
    {0x0014086C, "number of RP3 messages errors for antenna main"},
    {0x00140870, "number of RP3 messages errors for antenna diversity"},
};

// Antenna interface of the SoC ("K2"), by physical address.
inline constexpr LabelledRegister kAifAlarm = {0x01F40300, "alarm register showing RP1/RP3 states"};
inline constexpr uint32_t kAifAlarmGood = 0x202; // both bits are set on a healthy link
inline constexpr LabelledRegister kAifCommon[] = {
    {0x01F48020, "RP1 capture type"},
    {0x01F4C000, "TM_LK_CFG"},
};

// The board type decides which two links of the antenna interface are wired.
struct LinkRegister {
    const char *label;
    uint32_t upper[2];
    uint32_t lower[2];
};
inline constexpr LinkRegister kAifLinks[] = {
    {"PI_WINDOW_MIN", {0x01F48134, 0x01F48140}, {0x01F48104, 0x01F48110}},
    {"Pi meas", {0x01F48138, 0x01F48144}, {0x01F48108, 0x01F48114}},
    {"Pi window max", {0x01F48130, 0x01F4813C}, {0x01F48100, 0x01F4810C}},
    {"Rx RP3 sync state", {0x01F52014, 0x01F52814}, {0x01F50014, 0x01F50814}},
    {"Tx RP3 sync state", {0x01F4E038, 0x01F4E838}, {0x01F4C038, 0x01F4C838}},
    {"Delta offset per link", {0x01F48560, 0x01F48568}, {0x01F48540, 0x01F48548}},
    {"Number of Line Code Violations", {0x01F52018, 0x01F52818}, {0x01F50018, 0x01F50818}},
    {"EE_LK_IRS_A", {0x01F40200, 0x01F40280}, {0x01F40000, 0x01F40080}},
    {"EE_LK_IRS_B", {0x01F4022C, 0x01F402AC}, {0x01F4002C, 0x01F400AC}},
};

} // namespace ddal::logic
