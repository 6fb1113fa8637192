// The loader link's receiver. For any input from the UART, every operation ends with a code of the link and stays
// within the caller's memory. The line ends with end of file, so nothing waits.
//
// Input: one byte chooses the operation, one its length; the loader sends the rest.
#include "rf_card/command.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>

using namespace ddal::rf_card;

namespace {

class RecordedLine final : public ByteStream {
public:
    explicit RecordedLine(std::span<const uint8_t> bytes) : left_(bytes) {}

    bool wait_readable(int) override { return true; }
    ssize_t read_byte(uint8_t *byte) override
    {
        if (left_.empty())
            return 0;
        *byte = left_.front();
        left_ = left_.subspan(1);
        return 1;
    }
    ssize_t write_all(const uint8_t *, uint32_t length) override { return length; }
    void discard_output() override {}
    void discard_input() override {}
    int descriptor() const override { return -1; }

private:
    std::span<const uint8_t> left_;
};

class StandingClock final : public Clock {
public:
    uint64_t ticks() override { return 0; }
    uint64_t frequency() override { return 1'000'000'000; }
    void sleep_us(uint64_t) override {}
};

// Memory of exactly the size that the operation may use, so that an excess byte is noticed.
using Room = std::unique_ptr<uint8_t[]>;

Room room_of(size_t size)
{
    return std::make_unique<uint8_t[]>(size);
}

uint32_t receive_packet(Link &link, uint32_t)
{
    const Room room = room_of(kPacketRoom);
    bsl_packet packet{0, room.get()};
    return bsl_rx_pkt(link, packet);
}

uint32_t read_memory(Link &link, uint32_t length)
{
    const Room room = room_of(length);
    return bsl_tx_data(link, 0x9000, length, room.get());
}

uint32_t read_loader_version(Link &link, uint32_t)
{
    const Room room = room_of(kLoaderVersionMax);
    return bsl_tx_bsl_version(link, room.get());
}

uint32_t check_crc(Link &link, uint32_t length)
{
    const auto crc = std::make_unique<uint16_t>();
    return bsl_crc_check(link, 0x9000, static_cast<uint16_t>(length), crc.get());
}

uint32_t write_memory(Link &link, uint32_t length)
{
    const Room room = room_of(length);
    return bsl_rx_data(link, 0x9000, room.get(), length);
}

uint32_t erase(Link &link, uint32_t length)
{
    return bsl_erase(link, 0x9000, length, nullptr, nullptr);
}

uint32_t unlock(Link &link, uint32_t length)
{
    const Room room = room_of(length);
    return bsl_rx_password(link, room.get(), static_cast<uint16_t>(length));
}

constexpr uint32_t (*kOperations[])(Link &, uint32_t) = {
    receive_packet, read_memory, read_loader_version, check_crc, write_memory, erase, unlock,
};

bool is_link_code(uint32_t code)
{
    return code == 0 || (code >= BSL_ERR_ACK && code < BSL_ERR_CORE + 0x100) ||
           (code >= BSL_ERR_WRITE && code <= BSL_ERR_PINS);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    RecordedLine line{{data + 2, size - 2}};
    StandingClock clock;
    LinkTiming timing;
    Link link{line, clock, timing, 0, nullptr};
    const uint32_t length = data[1] * 3u;
    const uint32_t code = kOperations[data[0] % std::size(kOperations)](link, length);
    if (!is_link_code(code)) {
        fprintf(stderr, "code %u is none of the link's\n", code);
        abort();
    }
    return 0;
}
