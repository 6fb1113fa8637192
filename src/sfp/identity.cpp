// Fields of the SFP serial-identification memory.
#include <ddal/sfp.h>

#include <cstring>
#include <endian.h>

namespace {

// Offsets in the identification memory.
enum Field : uint32_t {
    kConnector = 2,
    kCompliance = 3,
    kBitrate = 12,
    kVendorName = 20,
    kPartNumber = 40,
    kRevision = 56,
    kWavelength = 60,
    kBitrateUpperLimit = 66,
    kBitrateLowerLimit = 67,
    kSerialNumber = 68,
    kDateCode = 84,
    kDiagnosticsRevision = 94,
};

constexpr uint32_t kComplianceBits = 64;

int read_field(uint32_t sfpId, Field field, void *buffer, uint32_t length)
{
    return ddal_sfp_memory_read(sfpId, DDAL_SFP_MEMORY_ID, field, buffer, length);
}

// Writes the NUL even after a failed read.
int read_text(uint32_t sfpId, Field field, char *text, uint32_t length)
{
    const int result = read_field(sfpId, field, text, length);
    text[length] = '\0';
    return result;
}

int read_byte(uint32_t sfpId, Field field, uint32_t *value)
{
    uint8_t byte = 0;
    const int result = read_field(sfpId, field, &byte, sizeof byte);
    *value = byte;
    return result;
}

uint64_t compliance_bits(const uint8_t codes[8])
{
    uint64_t bits;
    memcpy(&bits, codes, sizeof bits);
    return be64toh(bits);
}

uint32_t connector_value(uint8_t code)
{
    if (code <= 12)
        return code;
    if (code >= 0x20 && code <= 0x22)
        return 13u + (code - 0x20u);
    return code >= 0x80 ? 16 : 0;
}

} // namespace

int ddal_sfp_vendor_name_get(uint32_t sfpId, char name[17])
{
    return read_text(sfpId, kVendorName, name, 16);
}

int ddal_sfp_part_number_get(uint32_t sfpId, char number[17])
{
    return read_text(sfpId, kPartNumber, number, 16);
}

int ddal_sfp_revision_get(uint32_t sfpId, char revision[5])
{
    return read_text(sfpId, kRevision, revision, 4);
}

int ddal_sfp_serial_number_get(uint32_t sfpId, char number[17])
{
    return read_text(sfpId, kSerialNumber, number, 16);
}

int ddal_sfp_date_code_get(uint32_t sfpId, char date[9])
{
    return read_text(sfpId, kDateCode, date, 8);
}

int ddal_sfp_compliance_code_get(uint32_t sfpId, uint8_t codes[8])
{
    return read_field(sfpId, kCompliance, codes, 8);
}

int ddal_sfp_bitrate_get(uint32_t sfpId, uint32_t *value)
{
    return read_byte(sfpId, kBitrate, value);
}

int ddal_sfp_bitrate_upper_rate_limit_get(uint32_t sfpId, uint32_t *value)
{
    return read_byte(sfpId, kBitrateUpperLimit, value);
}

int ddal_sfp_bitrate_lower_rate_limit_get(uint32_t sfpId, uint32_t *value)
{
    return read_byte(sfpId, kBitrateLowerLimit, value);
}

int ddal_sfp_sff_8472_compliance_code_get(uint32_t sfpId, uint32_t *value)
{
    return read_byte(sfpId, kDiagnosticsRevision, value);
}

int ddal_sfp_wavelength_get(uint32_t sfpId, uint32_t *value)
{
    uint16_t stored;
    const int result = read_field(sfpId, kWavelength, &stored, sizeof stored);
    if (result == 0)
        *value = be16toh(stored);
    return result;
}

int ddal_sfp_connector_value_get(uint32_t sfpId, uint32_t *value)
{
    uint8_t code;
    const int result = read_field(sfpId, kConnector, &code, sizeof code);
    if (result == 0)
        *value = connector_value(code);
    return result;
}

int ddal_sfp_interpret_compliance_codes(const uint8_t codes[8], uint32_t *list, int32_t max, uint32_t *count)
{
    const uint64_t bits = compliance_bits(codes);
    int32_t found = 0;
    for (uint32_t bit = 0; bit < kComplianceBits; bit++) {
        if (!(bits >> bit & 1))
            continue;
        if (found >= max)
            return -1; // kept: callers test for -1
        list[found++] = bit;
    }
    *count = static_cast<uint32_t>(found);
    return 0;
}

int ddal_sfp_is_compliance_code_set(const uint8_t codes[8], uint8_t bit)
{
    return bit < kComplianceBits && (compliance_bits(codes) >> bit & 1);
}
