// Wiring of the RF card to the board, and the driver of its messages.
#pragma once

#include <cstdint>

namespace ddal::rf_card {

constexpr const char *kUartNode = "/dev/ttyFPGA3";

// FPGA register of the microcontroller's lines; 1 is high.
constexpr uint32_t kPinRegister = 0x14;
constexpr uint32_t kTestPin = 0x10000;
constexpr uint32_t kRstPin = 0x20000;

// FPGA register that switches the card's power.
constexpr uint32_t kRfPowerRegister = 0x180008;
constexpr uint32_t kRfPowerOn = 1;

// Messages to the application.
constexpr const char *kRfupNode = "/dev/rfup-usr";
constexpr uint32_t kRfupMessage = 0xC203E520;

struct RfupRequest {
    uint8_t opcode;
    uint8_t tx_len;
    uint8_t rx_len;
    uint8_t tx[256];
    uint8_t rx[256];
};
static_assert(sizeof(RfupRequest) == 515);

// Commands of the application.
constexpr uint8_t kStatusQuery = 0x00; // answers two bytes; the second one is kReady when the application is ready
constexpr uint8_t kReady = 0x5A;
constexpr uint8_t kRewriteLoader = 0x4A; // carries kRewriteArguments
constexpr uint8_t kRewriteArguments[] = {0xEE, 0x77};

} // namespace ddal::rf_card
