// One call of the switch's client library to the board's switch model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vboard::client_library {

struct Answer {
    int result;                 // result of the SDK
    std::vector<int64_t> words; // outputs

    int64_t word(size_t index) const { return index < words.size() ? words[index] : 0; }
};

// Makes one call at a time, from any thread and process. Without a board the result is -16, the SDK's "unavailable".
Answer call(const char *name, const std::vector<int64_t> &in);

} // namespace vboard::client_library
