// Calls of the client library as words, once the process is attached.
#pragma once

#include "switch/broadcom/sdk.h"
#include "switch/exchange.h"
#include "switch/release.h"

namespace vboard::client_library {

constexpr int kNoUnit = -3;

// Without an attachment there is no unit to call.
inline Answer ask(const char *name, const std::vector<int64_t> &in)
{
    return is_attached() ? call(name, in) : Answer{kNoUnit, {}};
}

template <typename... Words>
int put(const char *name, Words... words)
{
    return ask(name, {static_cast<int64_t>(words)...}).result;
}

template <typename Value, typename... Words>
int get(const char *name, Value *value, Words... words)
{
    const Answer answer = ask(name, {static_cast<int64_t>(words)...});
    if (answer.result == 0)
        *value = static_cast<Value>(answer.word(0));
    return answer.result;
}

template <typename Value, typename... Words>
int get_two(const char *name, Value *first, Value *second, Words... words)
{
    const Answer answer = ask(name, {static_cast<int64_t>(words)...});
    if (answer.result == 0) {
        *first = static_cast<Value>(answer.word(0));
        *second = static_cast<Value>(answer.word(1));
    }
    return answer.result;
}

inline void append(std::vector<int64_t> &words, const bcm_pbmp_t &ports)
{
    words.insert(words.end(), std::begin(ports.pbits), std::end(ports.pbits));
}

inline int64_t number_of(const uint8_t mac[6])
{
    int64_t number = 0;
    for (int i = 0; i < 6; ++i)
        number = number << 8 | mac[i];
    return number;
}

inline void store_mac(int64_t number, uint8_t mac[6])
{
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<uint8_t>(number >> (40 - 8 * i));
}

} // namespace vboard::client_library
