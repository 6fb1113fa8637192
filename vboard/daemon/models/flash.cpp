#include "flash.h"

#include <algorithm>

namespace vboard {

namespace {

constexpr uint8_t kErased = 0xFF;

bool within(uint32_t start, uint32_t end, uint32_t address, uint32_t length)
{
    return address >= start && address <= end && length <= end - address;
}

} // namespace

Flash::Flash() : bytes_(kMainEnd, kErased) {}

bool Flash::contains(uint32_t address, uint32_t length) const
{
    return within(kInfoStart, kInfoEnd, address, length) || within(kMainStart, kMainEnd, address, length);
}

bool Flash::writable(uint32_t address, uint32_t length) const
{
    return contains(address, length) && (address >= kMainStart || !info_locked_);
}

bool Flash::readable(uint32_t address, uint32_t length) const
{
    return within(0, kMainEnd, address, length);
}

std::span<const uint8_t> Flash::read(uint32_t address, uint32_t length) const
{
    return std::span{bytes_}.subspan(address, length);
}

bool Flash::program(uint32_t address, std::span<const uint8_t> data)
{
    if (!writable(address, static_cast<uint32_t>(data.size())))
        return false;
    bool kept = true;
    for (uint8_t wanted : data) {
        uint8_t &cell = bytes_[address++];
        cell &= wanted;
        kept = kept && cell == wanted;
    }
    return kept;
}

bool Flash::erase_segment(uint32_t address)
{
    const uint32_t start = address - address % kSegment;
    if (!writable(start, kSegment))
        return false;
    std::fill_n(bytes_.begin() + start, kSegment, kErased);
    return true;
}

void Flash::mass_erase()
{
    std::fill(bytes_.begin() + kMainStart, bytes_.end(), kErased);
}

void Flash::poke(uint32_t address, uint8_t value)
{
    if (address < bytes_.size())
        bytes_[address] = value;
}

} // namespace vboard
