#include "core/fresh_name.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace ddal::core {

namespace {

constexpr char kPattern[] = ".ddal-XXXXXX";
constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr uint64_t kLetterCount = sizeof kLetters - 1;

// Spreads every input bit over the result (the finaliser of a 64-bit multiplicative hash).
uint64_t mix(uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

constexpr size_t kPrefixLength = sizeof kPattern - sizeof "XXXXXX";

} // namespace

bool FreshName::matches(const char *name)
{
    return strncmp(name, kPattern, kPrefixLength) == 0 && strlen(name) == sizeof kPattern - 1 &&
           strspn(name + kPrefixLength, kLetters) == sizeof "XXXXXX" - 1;
}

void FreshName::choose()
{
    // Names need only differ between writers at work at the same time: the creation of the file fails if the name
    // exists.
    static std::atomic<uint32_t> count{0};
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    uint64_t random = mix(static_cast<uint64_t>(now.tv_nsec) ^ (static_cast<uint64_t>(now.tv_sec) << 30) ^
                          (static_cast<uint64_t>(getpid()) << 40) ^ (static_cast<uint64_t>(count++) << 56));

    memcpy(text_, kPattern, sizeof kPattern);
    for (char *letter = text_ + kPrefixLength; *letter != '\0'; ++letter) {
        *letter = kLetters[random % kLetterCount];
        random /= kLetterCount;
    }
}

} // namespace ddal::core
