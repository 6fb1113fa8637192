#include "bsl/token.h"

#include "bsl/link.h"
#include "core/log.h"

namespace ddal::bsl {

namespace {

constexpr uint32_t kDigitsMax = 7;

std::array<uint8_t, 10> digits;
uint32_t count;

} // namespace

int push_to_char_buffer(uint8_t digit)
{
    if (count >= kDigitsMax)
        return log_error(-1, "%s: buffer overflow\n", kTag);
    digits[count++] = digit;
    return 0;
}

int pop_from_char_buffer(uint32_t *value)
{
    if (count == 0)
        return 0;

    uint32_t sum = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t nibble = kNibbles[digits[i]];
        if (nibble == kNoNibble) {
            clear_char_buffer();
            return log_error(-1, "%s: Unable to decode data\n", kTag);
        }
        sum = sum << 4 | nibble;
    }
    clear_char_buffer();
    *value = sum;
    return 1;
}

void clear_char_buffer()
{
    digits = {};
    count = 0;
}

bool char_buffer_empty()
{
    return count == 0;
}

} // namespace ddal::bsl
