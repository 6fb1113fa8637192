// CRC-16/CCITT-FALSE of the loader link and of image records.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ddal::rf_card {

constexpr uint16_t kCrcStart = 0xFFFF;

uint16_t crc_update(uint16_t crc, uint8_t byte);
uint16_t crc_update(uint16_t crc, const uint8_t *data, size_t length);

} // namespace ddal::rf_card
