// The boot loader of the RF card's microcontroller: bytes of packets in, answers out. Knows neither time nor lines.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "flash.h"

namespace vboard {

// What the loader says to one packet, and what it does afterwards.
struct LoaderReply {
    uint8_t command = 0; // 0 when the packet was refused
    uint8_t acknowledgement = 0;
    std::vector<uint8_t> response; // payload; empty: none
    uint32_t new_rate = 0;         // 0: unchanged
    bool starts_application = false;
    bool erases = false; // takes the flash's erase time
};

uint16_t loader_crc(std::span<const uint8_t> bytes);

class BootLoader {
public:
    explicit BootLoader(Flash &flash) : flash_(flash) {}

    // After every entry: locked, nothing received.
    void start();

    // The next byte from the host; a reply when it completes a packet, or spoils one.
    std::optional<LoaderReply> feed(uint8_t byte);

    bool is_locked() const { return locked_; }
    size_t password_length() const { return password_length_; } // of the last one that was sent
    const std::array<uint8_t, 4> &version() const { return version_; }
    void set_version(const std::array<uint8_t, 4> &version) { version_ = version; }
    // Every byte of the password; erased flash has 0xFF.
    void set_password_fill(uint8_t fill) { password_fill_ = fill; }

private:
    LoaderReply refuse(uint8_t acknowledgement);
    LoaderReply execute(std::span<const uint8_t> payload);
    uint8_t check_password(std::span<const uint8_t> password);
    void mass_erase();
    void answer_data(LoaderReply &reply, std::span<const uint8_t> fields);
    std::optional<uint8_t> change_memory(LoaderReply &reply, std::span<const uint8_t> fields);

    Flash &flash_;
    std::vector<uint8_t> packet_; // header, length, payload and CRC so far
    bool locked_ = true;
    uint8_t password_fill_ = 0xFF;
    size_t password_length_ = 0;
    std::array<uint8_t, 4> version_{0x00, 0x08, 0x35, 0x53};
};

} // namespace vboard
