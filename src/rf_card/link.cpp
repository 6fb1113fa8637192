#include "rf_card/link.h"

#include <array>
#include <syslog.h>

#include "core/log.h"
#include "rf_card/crc.h"

namespace ddal::rf_card {

namespace {

constexpr uint8_t kHeader = 0x80;
constexpr int kByteTimeoutMs = 10'000;
constexpr uint64_t kGapsPerSecond = 833;
constexpr uint64_t kMicrosecondsPerSecond = 1'000'000;

struct NamedCode {
    uint8_t code;
    const char *name;
};

constexpr NamedCode kAcknowledgements[] = {
    {0x51, "HEADER_INCORRECT"},        {0x52, "CHECKSUM_INCORRECT"}, {0x53, "PKT_SIZE_ZERO"},
    {0x54, "PKT_SIZE_EXCEEDS_BUFFER"}, {0x55, "UNKNOWN_ERROR"},      {0x56, "UNKNOWN_BAUD_RATE"},
};

constexpr NamedCode kCoreStatus[] = {
    {0x01, "FLASH_WRITE_CHECK_FAILED"},
    {0x02, "FLASH_FAIL_BIT_SET"},
    {0x03, "VOLTAGE_CHANGE_DURING_PROGRAM"},
    {0x04, "BSL_LOCKED"},
    {0x05, "PASSWORD_ERROR"},
    {0x06, "BYTE_WRITE_FORBIDDEN"},
    {0x07, "UNKNOWN_COMMAND"},
    {0x08, "PACKET_LENGTH_EXCEEDS_BUFFER_SIZE"},
};

template <size_t N>
const char *name_of(const NamedCode (&names)[N], uint8_t code)
{
    for (const NamedCode &entry : names) {
        if (entry.code == code)
            return entry.name;
    }
    return "UNKNOWN";
}

void trace(const Link &link, const char *direction, uint8_t byte)
{
    if (link.verbose > 1)
        syslog(LOG_DEBUG, "%s: uart:%d, data:0x%02x\n", direction, link.stream.descriptor(), byte);
}

void keep_gap(Link &link)
{
    if (link.timing.gap == 0)
        link.timing.gap = link.clock.frequency() / kGapsPerSecond;

    const uint64_t passed = link.clock.ticks() - link.timing.last_reception;
    if (passed < link.timing.gap)
        link.clock.sleep_us((link.timing.gap - passed) * kMicrosecondsPerSecond / link.clock.frequency());
}

// Receives a header, length or CRC byte of a packet. `what` names it in the log.
uint32_t receive_field(Link &link, uint8_t *byte, const char *what)
{
    return log_failure_as("bsl_rx_pkt", read_byte(link, byte), "%s: ERROR: Timeout waiting for %s\n", kTag, what);
}

uint32_t receive_length(Link &link, uint16_t *length)
{
    uint8_t low = 0;
    uint8_t high = 0;
    if (const uint32_t result = receive_field(link, &low, "size 1"); result != 0)
        return result;
    if (const uint32_t result = receive_field(link, &high, "size 2"); result != 0)
        return result;
    *length = static_cast<uint16_t>(low | high << 8);
    return 0;
}

uint32_t receive_crc(Link &link, uint16_t calculated)
{
    uint8_t low = 0;
    uint8_t high = 0;
    if (const uint32_t result = receive_field(link, &low, "crc byte 1"); result != 0)
        return result;
    if (const uint32_t result = receive_field(link, &high, "crc byte 2"); result != 0)
        return result;

    const uint8_t calculated_low = bsl_crc_get_low_byte(calculated);
    const uint8_t calculated_high = bsl_crc_get_high_byte(calculated);
    if (low == calculated_low && high == calculated_high)
        return 0;
    return log_error_as("bsl_rx_pkt", BSL_ERR_CRC,
                        "%s: ERROR: CRC check failed. Calc = 0x%02x%02x, Rcvd = 0x%02x%02x\n", kTag, calculated_high,
                        calculated_low, high, low);
}

uint32_t receive_packet(Link &link, bsl_packet &packet)
{
    uint8_t header = 0;
    if (const uint32_t result = receive_field(link, &header, "hdr"); result != 0)
        return result;
    if (header != kHeader)
        return log_error_as("bsl_rx_pkt", BSL_ERR_HEADER, "%s: ERROR: First RX byte not hdr (0x%02x)\n", kTag, header);
    if (const uint32_t result = receive_length(link, &packet.length); result != 0)
        return result;

    uint16_t crc = kCrcStart;
    for (uint32_t i = 0; i < packet.length; ++i) {
        if (const uint32_t result = read_byte(link, &packet.data[i]); result != 0)
            return log_error_as("bsl_rx_pkt", result, "%s: ERROR: Timeout waiting for data byte %d of %d\n", kTag,
                                i + 2, packet.length);
        crc = crc_update(crc, packet.data[i]);
    }
    return receive_crc(link, crc);
}

// After a failed reception the start of the next packet is unknown: listens until the line is silent.
void drain(Link &link)
{
    uint8_t byte = 0;
    while (read_byte(link, &byte) == 0)
        continue;
}

uint32_t receive_acknowledgement(Link &link)
{
    uint8_t acknowledgement = 0;
    if (const uint32_t result = read_byte(link, &acknowledgement); result != 0)
        return log_error_as("bsl_tx_pkt", result, "%s: ERROR: Timeout waiting for TX response\n", kTag);
    if (acknowledgement == 0)
        return 0;
    log_line_as(LOG_ERR, "bsl_tx_pkt", "%s: Received UART error message: %s (0x%02x)\n", kTag,
                name_of(kAcknowledgements, acknowledgement), acknowledgement);
    link.stream.discard_output();
    link.stream.discard_input();
    return BSL_ERR_ACK | acknowledgement;
}

} // namespace

uint8_t *packet_room()
{
    static std::array<uint8_t, kPacketRoom> room;
    return room.data();
}

uint32_t read_byte(Link &link, uint8_t *byte)
{
    if (!link.stream.wait_readable(kByteTimeoutMs))
        return BSL_ERR_TIMEOUT;
    if (link.stream.read_byte(byte) != 1)
        return BSL_ERR_READ;
    link.timing.last_reception = link.clock.ticks();
    trace(link, "bsl_read_byte", *byte);
    return 0;
}

int fpga_putchar(Link &link, uint8_t byte)
{
    keep_gap(link);
    trace(link, "bsl_write_byte", byte);
    if (link.stream.write_all(&byte, 1) != 1)
        return log_error(-1, "BSL: ERROR: writing char to BSL UART failed\n");
    return 0;
}

ssize_t bsl_write_bytes(Link &link, const uint8_t *data, uint32_t length)
{
    for (uint32_t i = 0; link.verbose > 1 && i < length; ++i)
        trace(link, "bsl_write_byte", data[i]);
    const ssize_t n = link.stream.write_all(data, length);
    if (n < 0)
        __ddal_log(LOG_DEBUG, "%s: write error: %m\n", __func__);
    return n;
}

uint32_t bsl_tx_pkt(Link &link, const bsl_packet &packet)
{
    // A lost byte makes the loader reject the packet or stay silent. The wait for the acknowledgement detects both.
    fpga_putchar(link, kHeader);
    fpga_putchar(link, static_cast<uint8_t>(packet.length));
    fpga_putchar(link, static_cast<uint8_t>(packet.length >> 8));

    keep_gap(link);
    if (bsl_write_bytes(link, packet.data, packet.length) < 0)
        return log_error(BSL_ERR_WRITE, "%s: ERROR: Unable to send BSL packet\n", kTag);

    const uint16_t crc = crc_update(kCrcStart, packet.data, packet.length);
    fpga_putchar(link, bsl_crc_get_low_byte(crc));
    fpga_putchar(link, bsl_crc_get_high_byte(crc));
    return receive_acknowledgement(link);
}

uint32_t bsl_rx_pkt(Link &link, bsl_packet &packet)
{
    const uint32_t result = receive_packet(link, packet);
    if (result != 0)
        drain(link);
    return result;
}

uint32_t receive_response(Link &link, const char *caller, bsl_packet *response)
{
    response->data = packet_room();
    const uint32_t result = bsl_rx_pkt(link, *response);
    if (result != 0)
        return log_error_as(caller, result, "%s: ERROR: No response message\n", kTag);
    if (response->length == 0)
        response->data[0] = 0; // an empty packet has no type: 0 is not a known one
    return 0;
}

uint32_t core_status(const char *caller, uint8_t status)
{
    if (status == 0)
        return 0;
    return log_error_as(caller, BSL_ERR_CORE | status, "%s: Received BSL Core error: %s (0x%02x)\n", kTag,
                        name_of(kCoreStatus, status), status);
}

uint32_t get_bsl_resp(Link &link)
{
    bsl_packet response{};
    if (const uint32_t result = receive_response(link, __func__, &response); result != 0)
        return result;

    const uint8_t type = response.data[0];
    if (type == kMessageResponse && response.length > 1)
        return core_status(__func__, response.data[1]);
    if (type == kDataResponse)
        return log_error(BSL_ERR_RESPONSE, "%s: ERROR: Received BSL data when message was expected.\n", kTag);
    return log_error(BSL_ERR_RESPONSE, "%s: ERROR: Unrecognized BSL response type (0x%02x) received\n", kTag, type);
}

} // namespace ddal::rf_card
