#include "rf_card/token.h"

#include "core/log.h"
#include "rf_card/link.h"

namespace ddal::rf_card {

int Token::push_to_char_buffer(uint8_t digit)
{
    if (count_ >= kDigitsMax)
        return log_error(-1, "%s: buffer overflow\n", kTag);
    digits_[count_++] = digit;
    return 0;
}

int Token::pop_from_char_buffer(uint32_t *value)
{
    if (count_ == 0)
        return 0;

    uint32_t sum = 0;
    for (uint32_t i = 0; i < count_; ++i) {
        const uint8_t nibble = kNibbles[digits_[i]];
        if (nibble == kNoNibble) {
            clear();
            return log_error(-1, "%s: Unable to decode data\n", kTag);
        }
        sum = sum << 4 | nibble;
    }
    clear();
    *value = sum;
    return 1;
}

} // namespace ddal::rf_card
