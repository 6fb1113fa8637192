// The loader's commands, and the transfers and the range erase built from them.
#pragma once

#include <cstdint>

#include "rf_card/link.h"

namespace ddal::rf_card {

constexpr uint32_t kBlockMax = 250; // data bytes in one packet
constexpr uint32_t kSegmentSize = 512;
constexpr uint32_t kLoaderVersionMax = 256;

uint32_t bsl_rx_data_blk(Link &link, uint32_t address, const uint8_t *data, uint32_t length);
uint32_t bsl_tx_data_blk(Link &link, uint32_t address, uint32_t length, uint8_t *destination);
uint32_t bsl_crc_check(Link &link, uint32_t address, uint16_t length, uint16_t *crc);
uint32_t bsl_load_pc(Link &link, uint32_t address);
uint32_t bsl_rx_password(Link &link, const uint8_t *bytes, uint16_t length);
uint32_t bsl_erase_segment(Link &link, uint32_t address);
uint32_t bsl_toggle_info(Link &link);
uint32_t bsl_tx_bsl_version(Link &link, uint8_t *buffer);
uint32_t bsl_change_baud(Link &link, uint32_t baud);

uint32_t bsl_rx_data(Link &link, uint32_t address, const uint8_t *data, uint32_t length);
uint32_t bsl_tx_data(Link &link, uint32_t address, uint32_t length, uint8_t *destination);
uint32_t bsl_erase(Link &link, uint32_t start, uint32_t length, uint32_t *first_segment, uint32_t *last_address);
uint32_t bsl_tx_app_ver(Link &link, uint8_t *buffer);

} // namespace ddal::rf_card
