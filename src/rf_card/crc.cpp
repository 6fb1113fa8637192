#include "rf_card/crc.h"

#include <array>

#include <ddal/bsl.h>

namespace ddal::rf_card {

namespace {

constexpr uint16_t kPolynomial = 0x1021;
constexpr size_t kStride = 8; // bytes per step

// Row k holds the CRC of a byte that k zero bytes follow.
using Tables = std::array<std::array<uint16_t, 256>, kStride>;

constexpr Tables make_tables()
{
    Tables tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? kPolynomial : 0u);
        tables[0][byte] = static_cast<uint16_t>(crc);
    }
    for (size_t row = 1; row < kStride; ++row) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t before = tables[row - 1][byte];
            tables[row][byte] = static_cast<uint16_t>((before << 8) ^ tables[0][before >> 8]);
        }
    }
    return tables;
}

constexpr Tables kTables = make_tables();

} // namespace

uint16_t crc_update(uint16_t crc, uint8_t byte)
{
    const uint32_t wide = crc;
    return static_cast<uint16_t>((wide << 8) ^ kTables[0][(wide >> 8) ^ byte]);
}

uint16_t crc_update(uint16_t crc, const uint8_t *data, size_t length)
{
    for (; length >= kStride; data += kStride, length -= kStride) {
        const size_t first = static_cast<size_t>(data[0]) ^ (crc >> 8);
        const size_t second = static_cast<size_t>(data[1]) ^ (crc & 0xFF);
        crc = static_cast<uint16_t>(kTables[7][first] ^ kTables[6][second] ^ kTables[5][data[2]] ^ kTables[4][data[3]] ^
                                    kTables[3][data[4]] ^ kTables[2][data[5]] ^ kTables[1][data[6]] ^
                                    kTables[0][data[7]]);
    }
    for (; length > 0; ++data, --length)
        crc = crc_update(crc, *data);
    return crc;
}

} // namespace ddal::rf_card

uint16_t bsl_crc_init(void)
{
    return ddal::rf_card::kCrcStart;
}

uint16_t bsl_crc_update(uint16_t crc, uint8_t byte)
{
    return ddal::rf_card::crc_update(crc, byte);
}

uint8_t bsl_crc_get_low_byte(uint16_t crc)
{
    return static_cast<uint8_t>(crc);
}

uint8_t bsl_crc_get_high_byte(uint16_t crc)
{
    return static_cast<uint8_t>(crc >> 8);
}

uint16_t bsl_crc_calc(const uint8_t *buf, uint32_t len)
{
    return ddal::rf_card::crc_update(ddal::rf_card::kCrcStart, buf, len);
}
