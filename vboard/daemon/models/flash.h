// Memory of the RF card's microcontroller: flash that only loses ones until a segment is erased.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vboard {

class Flash {
public:
    static constexpr uint32_t kInfoStart = 0x1800; // information memory, locked after reset
    static constexpr uint32_t kInfoEnd = 0x1A00;
    static constexpr uint32_t kMainStart = 0x4000;
    static constexpr uint32_t kMainEnd = 0x44000;
    static constexpr uint32_t kSegment = 512;

    Flash();

    bool contains(uint32_t address, uint32_t length) const;
    // What is no flash reads as ones.
    bool readable(uint32_t address, uint32_t length) const;
    std::span<const uint8_t> read(uint32_t address, uint32_t length) const;

    // Clears bits; false when a bit that should be one is zero, or the range is no flash.
    bool program(uint32_t address, std::span<const uint8_t> data);
    // False where there is no segment, or a locked one.
    bool erase_segment(uint32_t address);
    void mass_erase();

    void lock_info() { info_locked_ = true; }
    void toggle_info() { info_locked_ = !info_locked_; }

    // Behind the part's back, as radiation or a broken charge pump would.
    void poke(uint32_t address, uint8_t value);

private:
    bool writable(uint32_t address, uint32_t length) const;

    std::vector<uint8_t> bytes_; // by address
    bool info_locked_ = true;
};

} // namespace vboard
