// The hexadecimal digits of the address or byte being read.
#pragma once

#include <array>
#include <cstdint>

namespace ddal::rf_card {

constexpr uint8_t kNoNibble = 0xFF;

constexpr std::array<uint8_t, 256> make_nibbles()
{
    std::array<uint8_t, 256> nibbles{};
    nibbles.fill(kNoNibble);
    for (uint8_t i = 0; i < 10; ++i)
        nibbles['0' + i] = i;
    for (uint8_t i = 0; i < 6; ++i)
        nibbles['a' + i] = nibbles['A' + i] = static_cast<uint8_t>(10 + i);
    return nibbles;
}

// The value of a hexadecimal digit, or kNoNibble for any other character.
inline constexpr std::array<uint8_t, 256> kNibbles = make_nibbles();

// Members that log have the names that their lines show.
class Token {
public:
    int push_to_char_buffer(uint8_t digit);    // returns 0, or -1 at the eighth digit
    int pop_from_char_buffer(uint32_t *value); // returns 1 for a value, 0 if empty, -1 if not hexadecimal
    void clear() { *this = {}; }
    bool empty() const { return count_ == 0; }

private:
    static constexpr uint32_t kDigitsMax = 7;

    std::array<uint8_t, kDigitsMax> digits_{};
    uint32_t count_ = 0;
};

} // namespace ddal::rf_card
