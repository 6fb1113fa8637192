#include "rf_card/command.h"

#include <array>
#include <bit>
#include <cstring>
#include <syslog.h>

#include "core/log.h"
#include "rf_card/version.h"

namespace ddal::rf_card {

namespace {

enum Command : uint8_t {
    kWriteMemory = 0x10,
    kPassword = 0x11,
    kEraseSegment = 0x12,
    kToggleInfo = 0x13,
    kCrcCheck = 0x16,
    kLoadPc = 0x17,
    kReadMemory = 0x18,
    kLoaderVersion = 0x19,
    kChangeBaud = 0x52,
};

struct BaudCode {
    uint32_t baud;
    uint8_t code;
};

constexpr BaudCode kBaudCodes[] = {
    {19200, 0x03},
    {38400, 0x04},
    {57600, 0x05},
    {115200, 0x06},
};
constexpr uint8_t kOtherBaudCode = 0x02; // for 9600 baud

uint8_t baud_code(uint32_t baud)
{
    for (const BaudCode &entry : kBaudCodes) {
        if (entry.baud == baud)
            return entry.code;
    }
    return kOtherBaudCode;
}

// A command byte and its fields, low byte first.
class Payload {
public:
    explicit Payload(Command command) { add_byte(command); }

    Payload &add_byte(uint32_t value)
    {
        bytes_[length_++] = static_cast<uint8_t>(value);
        return *this;
    }
    Payload &add_length(uint32_t length) { return add_byte(length).add_byte(length >> 8); }
    Payload &add_address(uint32_t address) { return add_length(address).add_byte(address >> 16); }
    Payload &add_block(const uint8_t *data, uint32_t length) // at most kBlockMax
    {
        if (length != 0)
            memcpy(&bytes_[length_], data, length);
        length_ = static_cast<uint16_t>(length_ + length);
        return *this;
    }

    bsl_packet packet() { return {length_, bytes_.data()}; }

private:
    static constexpr uint32_t kFieldsMax = 6; // command, address, length
    std::array<uint8_t, kFieldsMax + kBlockMax> bytes_;
    uint16_t length_ = 0;
};

uint32_t send(Link &link, const char *caller, const bsl_packet &packet)
{
    return log_failure_as(caller, bsl_tx_pkt(link, packet), "%s: ERROR: No response byte\n", kTag);
}

uint32_t send_for_message(Link &link, const char *caller, const bsl_packet &packet)
{
    const uint32_t result = send(link, caller, packet);
    return result != 0 ? result : get_bsl_resp(link);
}

// The number of bytes that a data response may carry.
struct Expected {
    uint32_t least;
    uint32_t most;
};

uint32_t copy_data(const char *caller, const bsl_packet &response, Expected expected, uint8_t *destination)
{
    const uint32_t received = response.length - 1u;
    if (received < expected.least || received > expected.most) {
        log_line_as(LOG_ERR, caller, "%s: ERROR: Did not receive the expected amount of data\n", kTag);
        return log_error_as(caller, BSL_ERR_RESPONSE, "%s: ERROR: expected=%d received=%d\n", kTag, expected.most,
                            received);
    }
    if (received != 0)
        memcpy(destination, response.data + 1, received);
    return 0;
}

uint32_t send_for_data(Link &link, const char *caller, const bsl_packet &packet, Expected expected,
                       uint8_t *destination)
{
    if (const uint32_t result = send(link, caller, packet); result != 0)
        return result;
    bsl_packet response{};
    if (const uint32_t result = receive_response(link, caller, &response); result != 0)
        return result;

    const uint8_t type = response.data[0];
    if (type == kDataResponse)
        return copy_data(caller, response, expected, destination);
    // kept: a message with status 0 is a success that copies nothing
    if (type == kMessageResponse && response.length > 1)
        return core_status(caller, response.data[1]);
    return log_error_as(caller, BSL_ERR_RESPONSE, "%s: ERROR: Received unexpected response type (0x%02x)\n", kTag,
                        type);
}

} // namespace

uint32_t bsl_rx_data_blk(Link &link, uint32_t address, const uint8_t *data, uint32_t length)
{
    if (length > kBlockMax)
        return log_error(BSL_ERR_TX_TOO_LONG,
                         "%s: ERROR: Attempted to send too much data in a single packet. length=%d, max=%d\n", kTag,
                         length, kBlockMax);
    Payload payload{kWriteMemory};
    payload.add_address(address).add_block(data, length);
    return send_for_message(link, __func__, payload.packet());
}

uint32_t bsl_tx_data_blk(Link &link, uint32_t address, uint32_t length, uint8_t *destination)
{
    if (length > kBlockMax)
        return log_error(BSL_ERR_RX_TOO_LONG,
                         "%s: ERROR: Attempted to read too much data in a single packet. length=%d, max=%d\n", kTag,
                         length, kBlockMax);
    Payload payload{kReadMemory};
    payload.add_address(address).add_length(length);
    return send_for_data(link, __func__, payload.packet(), {length, length}, destination);
}

uint32_t bsl_crc_check(Link &link, uint32_t address, uint16_t length, uint16_t *crc)
{
    Payload payload{kCrcCheck};
    payload.add_address(address).add_length(length);
    // Reads straight into the caller's value, which keeps its content when the loader answers with a message.
    static_assert(std::endian::native == std::endian::little);
    return send_for_data(link, __func__, payload.packet(), {sizeof *crc, sizeof *crc},
                         reinterpret_cast<uint8_t *>(crc));
}

uint32_t bsl_load_pc(Link &link, uint32_t address)
{
    Payload payload{kLoadPc};
    return send(link, __func__, payload.add_address(address).packet());
}

uint32_t bsl_rx_password(Link &link, const uint8_t *bytes, uint16_t length)
{
    if (length >= kPacketRoom)
        return log_error(BSL_ERR_TX_TOO_LONG,
                         "%s: ERROR: Attempted to send too much data in a single packet. length=%d, max=%d\n", kTag,
                         length, kPacketRoom - 1);
    uint8_t *payload = packet_room();
    payload[0] = kPassword;
    if (length != 0)
        memcpy(payload + 1, bytes, length);
    return send_for_message(link, __func__, {static_cast<uint16_t>(length + 1), payload});
}

uint32_t bsl_erase_segment(Link &link, uint32_t address)
{
    Payload payload{kEraseSegment};
    return send_for_message(link, __func__, payload.add_address(address).packet());
}

uint32_t bsl_toggle_info(Link &link)
{
    return send_for_message(link, __func__, Payload{kToggleInfo}.packet());
}

uint32_t bsl_tx_bsl_version(Link &link, uint8_t *buffer)
{
    return send_for_data(link, __func__, Payload{kLoaderVersion}.packet(), {0, kLoaderVersionMax}, buffer);
}

uint32_t bsl_change_baud(Link &link, uint32_t baud)
{
    Payload payload{kChangeBaud};
    const uint32_t result = send(link, __func__, payload.add_byte(baud_code(baud)).packet());
    if (result != 0)
        syslog(LOG_ERR, "%s: ERROR: Response byte wrong (%02x)", kTag, result);
    return result;
}

uint32_t bsl_rx_data(Link &link, uint32_t address, const uint8_t *data, uint32_t length)
{
    syslog(LOG_INFO, "%s: Writing %d bytes to uP flash @ 0x%06x", kTag, length, address);
    uint32_t result = 0;
    while (length > 0 && result == 0) {
        const uint32_t block = length < kBlockMax ? length : kBlockMax;
        result = bsl_rx_data_blk(link, address, data, block);
        if (result == 0)
            report_bytes(link, block);
        address += block;
        data += block;
        length -= block;
    }
    return result;
}

uint32_t bsl_tx_data(Link &link, uint32_t address, uint32_t length, uint8_t *destination)
{
    uint32_t result = 0;
    while (length > 0 && result == 0) {
        const uint32_t block = length < kBlockMax ? length : kBlockMax;
        result = bsl_tx_data_blk(link, address, block, destination);
        address += block;
        destination += block;
        length -= block;
    }
    return result;
}

uint32_t bsl_erase(Link &link, uint32_t start, uint32_t length, uint32_t *first_segment, uint32_t *last_address)
{
    if (first_segment)
        *first_segment = 0;
    if (last_address)
        *last_address = 0;

    uint32_t result = 0;
    uint32_t segment = start - start % kSegmentSize;
    uint32_t covered = segment + kSegmentSize - start;
    while (length > 0 && result == 0) {
        result = bsl_erase_segment(link, segment);
        if (last_address)
            *last_address = segment + kSegmentSize - 1;
        if (first_segment && *first_segment == 0)
            *first_segment = segment;
        const uint32_t bytes = length < covered ? length : covered;
        if (result == 0)
            report_bytes(link, bytes);
        length -= bytes;
        segment += kSegmentSize;
        covered = kSegmentSize;
    }
    return result;
}

uint32_t bsl_tx_app_ver(Link &link, uint8_t *buffer)
{
    return bsl_tx_data_blk(link, bsl_get_up_version_addr(), kVersionLength, buffer);
}

} // namespace ddal::rf_card
