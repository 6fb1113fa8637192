// The packet link to the boot loader, over any byte stream.
#pragma once

#include <cstdint>

#include <ddal/bsl.h>

#include "rf_card/byte_stream.h"
#include "rf_card/progress.h"

namespace ddal::rf_card {

constexpr const char *kTag = "BSL";
constexpr uint32_t kPacketRoom = 65535; // the longest payload that a sender can announce

// First byte of a core response.
constexpr uint8_t kDataResponse = 0x3A;
constexpr uint8_t kMessageResponse = 0x3B;

// Pause that the loader needs between its last byte and the next byte sent to it.
struct LinkTiming {
    uint64_t last_reception = 0; // clock ticks
    uint64_t gap = 0;            // clock ticks; 0 until first used
};

struct Link {
    ByteStream &stream;
    Clock &clock;
    LinkTiming &timing;
    int verbose;
    Progress *progress = nullptr;
};

inline void report_bytes(Link &link, uint32_t bytes)
{
    if (link.progress)
        link.progress->advance(bytes);
}

// Waits for one byte for at most 10 s. Returns 0, BSL_ERR_TIMEOUT or BSL_ERR_READ.
uint32_t read_byte(Link &link, uint8_t *byte);

// Writes one byte. Returns 0, or -1 when it cannot be written.
int fpga_putchar(Link &link, uint8_t byte);
ssize_t bsl_write_bytes(Link &link, const uint8_t *data, uint32_t length);

uint32_t bsl_tx_pkt(Link &link, const bsl_packet &packet);
uint32_t bsl_rx_pkt(Link &link, bsl_packet &packet);
uint32_t get_bsl_resp(Link &link);

// Receives a core response into the link's buffer. Logs under the name `caller`.
uint32_t receive_response(Link &link, const char *caller, bsl_packet *response);
// Returns the code of a message response's status. Logs a status other than 0.
uint32_t core_status(const char *caller, uint8_t status);

// Returns the buffer for one packet of any length. Every packet sent or received overwrites it.
uint8_t *packet_room();

} // namespace ddal::rf_card
